#include "fleet/store/faults.h"

#include "fleet/store/logs.h"

#include <fmt/format.h>

#include <deque>
#include <map>

namespace dtfleet {
namespace {

// What a device appends to and drops the oldest of: a fault's log, or the values of all faults.
struct Sequence {
    std::deque<std::string> places; // of values; lines refer to them
    std::vector<Line> lines;
    std::vector<size_t> rows; // that these lines were made of
};
using Sequences = std::map<std::string, Sequence>;

// Refers to the rows.
Sequences sequences_of(std::span<const FaultRow> rows) {
    Sequences sequences;
    for (size_t i = 0; i < rows.size(); ++i) {
        const FaultRow &row = rows[i];
        const bool is_line = row.kind == "init" || row.kind == "run";
        Sequence &sequence = sequences[is_line ? row.kind + ' ' + row.fault : ""];
        if (!is_line)
            sequence.places.push_back(fmt::format("{} {} {}", row.kind, row.value_id, row.fault));
        sequence.lines.push_back(
            {is_line ? std::string_view(row.stamp) : sequence.places.back(), row.value});
        sequence.rows.push_back(i);
    }
    return sequences;
}

// Which of a newer file's rows are stored: those that what is stored ends with.
std::vector<bool> known_of_newer(const Sequences &stored, const Sequences &fresh, size_t rows) {
    std::vector<bool> known(rows);
    for (const auto &[name, sequence] : fresh) {
        const auto before = stored.find(name);
        if (before == stored.end()) continue;
        const size_t common = overlap(before->second.lines, sequence.lines);
        for (size_t i = 0; i < common; ++i) known[sequence.rows[i]] = true;
    }
    return known;
}

// Which of an older file's rows are stored, wherever.
std::vector<bool> known_of_older(const Sequences &stored, const Sequences &fresh, size_t rows) {
    std::vector<bool> known(rows);
    for (const auto &[name, sequence] : fresh) {
        const auto before = stored.find(name);
        if (before == stored.end()) continue;
        std::map<std::pair<std::string_view, std::string_view>, size_t> left;
        for (const Line &line : before->second.lines) ++left[{line.stamp, line.text}];
        for (size_t i = 0; i < sequence.lines.size(); ++i) {
            size_t &count = left[{sequence.lines[i].stamp, sequence.lines[i].text}];
            known[sequence.rows[i]] = count != 0;
            if (count != 0) --count;
        }
    }
    return known;
}

} // namespace

std::vector<bool> known_rows(std::span<const FaultRow> stored, const FaultFile &file,
                             bool is_behind) {
    const auto known = is_behind ? known_of_older : known_of_newer;
    return known(sequences_of(stored), sequences_of(file.rows), file.rows.size());
}

} // namespace dtfleet
