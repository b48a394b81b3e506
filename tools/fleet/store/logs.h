// Logs among the values: devices send theirs whole in each run, as pairs of a stamp and a text.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dtfleet {

struct Line {
    std::string_view stamp; // bytes, both
    std::string_view text;
    bool operator==(const Line &) const = default;
};

// Whether it has the form [YYYY/]MM/DD HH:MI:SS.
bool is_stamp(std::string_view text);

// Whether every odd one of the strings is a stamp, the first for one; none is none.
bool has_stamps(std::span<const std::string_view> strings);

// Stamp and text in turns, of an even count.
std::vector<Line> lines_of(std::span<const std::string_view> strings);

// How many lines at the front of `fresh` are there already: as many as `stored` can end with.
size_t overlap(std::span<const Line> stored, std::span<const Line> fresh);

// Where a log that has arrived goes on from the lines that are stored, of which `end` is the last
// one's number.
struct Growth {
    size_t known = 0;     // lines at its front that are there already
    int64_t first = 0;    // its first line's number
    bool has_gap = false; // lines are missing before it
};
using Texts = std::vector<std::pair<std::string, std::string>>; // stamps and texts
Growth growth_of(const Texts &stored, int64_t end, std::span<const Line> fresh);

// To tell whether a log is the same as last time.
uint64_t hash_of(std::span<const Line> lines);

} // namespace dtfleet
