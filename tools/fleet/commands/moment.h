// Points in time as users type them.
#pragma once

#include "fleet/store/record.h"
#include "host/command.h"

#include <optional>
#include <string>
#include <string_view>

namespace dtfleet {

// Which way a length of time such as "2h" counts from now.
enum class Way { back, ahead };

// "now", "2h" from now, "2026-01-31", "2026-01-31T08:15" or "2026-01-31T08:15:00", in UTC and with
// or without a Z behind it; nothing for anything else.
std::optional<Microseconds> parse_moment(std::string_view text, Way way, Microseconds now);

// Adds an option that takes such a text. moment must outlive the command's callback.
dtctl::Option add_moment(dtctl::Command &command, const char *name, Microseconds &moment, Way way,
                         const std::string &help);

} // namespace dtfleet
