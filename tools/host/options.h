// What options on a command line mean.
#pragma once

#include <chrono>
#include <string>

namespace dtctl {

// The value of an option in seconds, rounded up. Throws CLI::ValidationError for what is no number,
// which a range lets pass.
std::chrono::milliseconds milliseconds_of(const std::string &option, double seconds);

} // namespace dtctl
