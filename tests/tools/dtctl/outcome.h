// What a part of dtctl writes, and how it ends.
#pragma once

#include "host/failure.h"

#include <cstdio>
#include <cstdlib>
#include <string>

struct Outcome {
    dtctl::Exit code = dtctl::Exit::success;
    std::string error;
    std::string output;
};

template <typename Action> Outcome outcome_of(Action action) {
    Outcome outcome;
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    try {
        action(out);
    } catch (const dtctl::Failure &failure) {
        outcome.code = failure.code();
        outcome.error = failure.what();
    }
    std::fclose(out);
    outcome.output.assign(text, size);
    std::free(text);
    return outcome;
}
