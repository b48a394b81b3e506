// Keeps away from a TOML parser what it would choke on: parsers and their trees recurse, and a few
// bytes of dotted names make thousands of tables within each other.
#pragma once

#include <cstddef>
#include <string_view>

namespace dtctl {

// Far beyond what people write, far below what hurts.
struct TomlLimits {
    size_t size = size_t{1} << 20; // bytes; the time of a parser may grow with its square
    size_t name = 1000;            // bytes of a dotted name as it is written
    size_t parts = 32;             // names that a dotted name joins, 2 or more
    size_t depth = 32;             // arrays and inline tables within each other
};

// Throws Failure (broken) with the line and the reason for a text beyond the limits. Whether it is
// TOML is not its question: what it lets pass may still break the format.
void guard_toml(std::string_view text, const TomlLimits &limits = {});

} // namespace dtctl
