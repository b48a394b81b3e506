// How numbers compare: the wire knows no sign, the inventory may.
#pragma once

#include "decode/events.h"

#include <cstdint>

namespace dtfleet {

// The number of a pattern that has a sign; 32-bit ones are stored zero-extended.
constexpr int64_t signed_number(uint64_t pattern, dt::decode::Kind type) {
    return type == dt::decode::Kind::int32 ? static_cast<int32_t>(static_cast<uint32_t>(pattern))
                                           : static_cast<int64_t>(pattern);
}

constexpr bool is_less(uint64_t a, uint64_t b, dt::decode::Kind type, bool is_signed) {
    return is_signed ? signed_number(a, type) < signed_number(b, type) : a < b;
}

} // namespace dtfleet
