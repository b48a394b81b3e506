#include "host/terminal.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cstdlib>

namespace dtctl {

bool shows_colours(std::FILE *out) {
    const char *no_color = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    if ((no_color && *no_color) || (terminal && std::string_view(terminal) == "dumb")) return false;
    return ::isatty(::fileno(out)) != 0;
}

std::string bold(std::string_view text) { return fmt::format("\033[1m{}\033[0m", text); }
std::string faint(std::string_view text) { return fmt::format("\033[2m{}\033[0m", text); }

} // namespace dtctl
