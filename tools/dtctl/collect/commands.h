// The subcommands on collections. Each adds its options to the program and runs when it is chosen.
#pragma once

#include "decode/decoder.h"
#include "host/command.h"

#include <cstddef>

namespace dtctl {

// --max-value, in MiB.
inline constexpr size_t default_mebibytes = dt::decode::default_max_value >> 20;
inline constexpr size_t max_mebibytes = 2047;

void add_collect(Command &program);
void add_selftest(Command &program);
void add_decode(Command &program);

} // namespace dtctl
