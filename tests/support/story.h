// What every story of a module needs: the tests' clock and platform layer, and the library.
#pragma once

#include "support/clock.h"
#include "support/platform.h"

#include <dt/dt.h>
#include <gmock/gmock.h>

using testing::ElementsAre;

inline std::string text_of(const DTBuf *buf) { return {buf->data, buf->data + buf->length}; }

// What a call leaves on the console.
template <typename R, typename... P, typename... A>
std::string console_of(R (*call)(P...), A... arguments) {
    platform.prints.clear();
    call(arguments...);
    return platform.take_console();
}
