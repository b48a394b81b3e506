#include "host/options.h"

#include <CLI/CLI.hpp>

#include <cmath>

namespace dtctl {

std::chrono::milliseconds milliseconds_of(const std::string &option, double seconds) {
    if (std::isnan(seconds)) throw CLI::ValidationError(option, "not a number");
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

} // namespace dtctl
