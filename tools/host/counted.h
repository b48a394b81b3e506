// How many there are of something, for people.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace dtctl {

// "1 device", "2 devices".
inline std::string counted(uint64_t number, std::string_view thing) {
    return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
}

} // namespace dtctl
