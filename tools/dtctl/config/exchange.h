// What a configuration server says to a request, without sockets.
//
// A request is one datagram, "=>config GROUP KEY DEFAULT". Group and key end at the first blank;
// the default is all the rest, blanks included, and may be empty. The answer is one datagram, the
// value as text.
#pragma once

#include "dtctl/config/settings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dtctl {

inline constexpr uint16_t config_port = 8999;

// The longest datagram that a device sends, and the longest that it takes.
inline constexpr size_t max_config_request = 999;
inline constexpr size_t max_config_answer = 999;

struct ConfigAnswer {
    std::optional<std::string> datagram; // nothing: no answer is sent
    std::string log; // one line for the log, safe for a terminal: the request and the answer
};

// bytes is the datagram, or its beginning when it is longer than max_config_request; size is the
// size that it had.
//
// A longer value is cut to max_config_answer bytes. An empty one is sent: a device takes it for no
// answer, but at once. echo: settings that are not there are answered with the device's default.
ConfigAnswer answer_config(std::string_view bytes, size_t size, const Settings &settings,
                           bool echo);

} // namespace dtctl
