// The sums of hours, as their rows hold them.
#pragma once

#include "fleet/store/state.h"

#include <optional>
#include <string_view>

namespace dtfleet::sqlite {

// The sum of one series in the entries of a row of `rollup`.
std::optional<Sum> find_sum(std::string_view entries, int64_t series, uint32_t ordinal);

} // namespace dtfleet::sqlite
