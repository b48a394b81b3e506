#include "fleet/store/postgres/binary.h"

#include <algorithm>

namespace dtfleet::postgres {

ArrayWalk::ArrayWalk(std::string_view bytes) : rest_(bytes) {
    const uint32_t dimensions = take_32();
    (void)take_32(); // whether there are NULLs
    (void)take_32(); // the type
    if (dimensions != 1) return;
    const size_t count = take_32();
    (void)take_32(); // the first place
    count_ = std::min(count, rest_.size() / 4);
}

uint32_t ArrayWalk::take_32() {
    if (rest_.size() < 4) {
        rest_ = {};
        return 0;
    }
    const auto number = static_cast<uint32_t>(number_in(rest_.substr(0, 4)));
    rest_.remove_prefix(4);
    return number;
}

std::optional<std::string_view> ArrayWalk::next() {
    const uint32_t length = take_32();
    if (length == null_length || length > rest_.size()) return std::nullopt;
    const std::string_view element = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return element;
}

} // namespace dtfleet::postgres
