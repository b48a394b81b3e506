// What the help of each command ends with.
#pragma once

#include "host/command.h"

#include <string>

namespace dtfleet {

inline constexpr const char *exit_help =
    R"(Exit status: 0 done; 1 a file or the database cannot be read or written; 2 usage; 3 a device
was silent for too long; 4 no service runs there, or an address or port cannot be reached or
is taken; 5 what was read breaks its format, or the service refuses.)";

// Examples without their blanks in front, a line each, and a text with its last line feed, or none.
inline void add_footer(dtctl::Command &command, const std::string &examples,
                       const std::string &text = "") {
    std::string shown = "Examples:\n  ";
    for (const char c : examples) shown += c == '\n' ? "\n  " : std::string(1, c);
    command.footer(shown + "\n\n" + (text.empty() ? "" : text + "\n") + exit_help);
}

} // namespace dtfleet
