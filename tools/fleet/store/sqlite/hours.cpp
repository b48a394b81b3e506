#include "fleet/store/sqlite/hours.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

namespace dtfleet::sqlite {

// Entries are lists of numbers without blanks, so a bracket begins one and nothing else. A row of
// thousands of series is searched far faster than parsed.
std::optional<Sum> find_sum(std::string_view entries, int64_t series, uint32_t ordinal) {
    const std::string begin = fmt::format("[{},{},", series, ordinal);
    const size_t at = entries.find(begin);
    if (at == std::string_view::npos) return std::nullopt;
    entries.remove_prefix(at + begin.size());
    std::array<int64_t, 4> numbers{};
    for (int64_t &number : numbers) {
        const auto [end, error] =
            std::from_chars(entries.data(), entries.data() + entries.size(), number);
        if (error != std::errc() || end == entries.data() + entries.size()) return std::nullopt;
        entries.remove_prefix(static_cast<size_t>(end - entries.data()) + 1);
    }
    const auto pattern = [&](size_t i) { return static_cast<uint64_t>(numbers[i]); };
    return Sum{pattern(0), pattern(1), pattern(2), pattern(3)};
}

} // namespace dtfleet::sqlite
