// The subcommands on collections. Each adds its options to the program and runs when it is chosen.
#pragma once

#include "decode/decoder.h"

#include <cstddef>

namespace CLI {
class App;
} // namespace CLI

namespace dtctl {

// --max-value, in MiB.
inline constexpr size_t default_mebibytes = dt::decode::default_max_value >> 20;
inline constexpr size_t max_mebibytes = 2047;

void add_collect(CLI::App &app);
void add_selftest(CLI::App &app);
void add_decode(CLI::App &app);

} // namespace dtctl
