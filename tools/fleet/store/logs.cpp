#include "fleet/store/logs.h"

#include "fleet/store/digest.h"

namespace dtfleet {
namespace {

// '0' in the form stands for any digit.
bool has_form(std::string_view text, std::string_view form) {
    if (text.size() != form.size()) return false;
    for (size_t i = 0; i < form.size(); ++i) {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == '0' ? !is_digit : text[i] != form[i]) return false;
    }
    return true;
}

// For each line of a log and all before it: how many of its first lines it also ends with, but for
// all of them.
std::vector<size_t> borders_of(std::span<const Line> lines) {
    std::vector<size_t> borders(lines.size());
    size_t length = 0;
    for (size_t i = 1; i < lines.size(); ++i) {
        while (length != 0 && lines[i] != lines[length]) length = borders[length - 1];
        if (lines[i] == lines[length]) ++length;
        borders[i] = length;
    }
    return borders;
}

} // namespace

bool is_stamp(std::string_view text) {
    return has_form(text, "00/00 00:00:00") || has_form(text, "0000/00/00 00:00:00");
}

bool has_stamps(std::span<const std::string_view> strings) {
    for (size_t i = 0; i < strings.size(); i += 2)
        if (!is_stamp(strings[i])) return false;
    return !strings.empty();
}

std::vector<Line> lines_of(std::span<const std::string_view> strings) {
    std::vector<Line> lines;
    lines.reserve(strings.size() / 2);
    for (size_t i = 1; i < strings.size(); i += 2) lines.push_back({strings[i - 1], strings[i]});
    return lines;
}

// Reads what is stored once, and never steps back in it however often lines repeat (Knuth, Morris,
// Pratt).
size_t overlap(std::span<const Line> stored, std::span<const Line> fresh) {
    if (fresh.empty()) return 0;
    const std::vector<size_t> borders = borders_of(fresh);
    size_t length = 0;
    for (const Line &line : stored) {
        if (length == fresh.size()) length = borders[length - 1];
        while (length != 0 && line != fresh[length]) length = borders[length - 1];
        if (line == fresh[length]) ++length;
    }
    return length;
}

Growth growth_of(const Texts &stored, int64_t end, std::span<const Line> fresh) {
    std::vector<Line> lines;
    lines.reserve(stored.size());
    for (const auto &[stamp, text] : stored) lines.push_back({stamp, text});
    const size_t known = overlap(lines, fresh);
    return {known, end + 1 - static_cast<int64_t>(known), known == 0 && end != 0};
}

// Where a text ends counts, too.
uint64_t hash_of(std::span<const Line> lines) {
    uint64_t hash = hash_of(std::string_view());
    for (const Line &line : lines)
        for (const std::string_view bytes : {line.stamp, line.text})
            hash = hash_of(bytes, hash_of({"\0", 1}, hash));
    return hash;
}

} // namespace dtfleet
