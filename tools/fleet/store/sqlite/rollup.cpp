#include "fleet/store/sqlite/rollup.h"

#include "fleet/store/number.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <map>
#include <utility>

namespace dtfleet::sqlite {
namespace {

using Place = std::pair<int64_t, uint32_t>; // series and ordinal
using Sums = std::map<Place, Sum>;

uint64_t pattern(const nlohmann::json &number) {
    return static_cast<uint64_t>(number.get<int64_t>());
}

// The row of an hour in which the device has been heard before: the clock has been set back, or
// the sums grew too many. An unreadable one is replaced.
Sums sums_there(Database &database, int64_t device, uint32_t command, int64_t hour) {
    Sums sums;
    Statement &find = database.statement(
        "SELECT entries FROM rollup WHERE device = ? AND command = ? AND hour = ?");
    find.with(device, command, hour);
    if (!find.step()) return sums;
    const nlohmann::json entries = nlohmann::json::parse(find.bytes(0), nullptr, false);
    find.reset();
    if (entries.is_discarded()) return sums;
    try {
        for (const nlohmann::json &entry : entries)
            sums[{entry.at(0).get<int64_t>(), entry.at(1).get<uint32_t>()}] =
                Sum{entry.at(2).get<uint64_t>(), pattern(entry.at(3)), pattern(entry.at(4)),
                    pattern(entry.at(5))};
    } catch (const nlohmann::json::exception &) {
        sums.clear();
    }
    return sums;
}

bool is_less_in(Database &database, int64_t series, uint64_t a, uint64_t b) {
    Statement &find = database.statement("SELECT type, signed FROM series WHERE id = ?");
    find.with(series);
    const bool known = find.step();
    const auto type = static_cast<dt::decode::Kind>(known ? find.number(0) : 1);
    const bool is_signed = known && find.number(1) != 0;
    find.reset();
    return is_less(a, b, type, is_signed);
}

void join(Database &database, int64_t series, Sum &sum, const Sum &later) {
    if (is_less_in(database, series, later.min, sum.min)) sum.min = later.min;
    if (is_less_in(database, series, sum.max, later.max)) sum.max = later.max;
    sum.last = later.last;
    sum.n += later.n;
}

void put(fmt::memory_buffer &out, const Place &place, const Sum &sum) {
    fmt::format_to(std::back_inserter(out), "{}[{},{},{},{},{},{}]", out.size() == 1 ? "" : ",",
                   place.first, place.second, sum.n, static_cast<int64_t>(sum.min),
                   static_cast<int64_t>(sum.max), static_cast<int64_t>(sum.last));
}

std::string text_of(Database &database, Sums &there, const std::vector<Entry> &entries) {
    fmt::memory_buffer out;
    out.push_back('[');
    for (const Entry &entry : entries) {
        if (entry.sum.n == 0) continue;
        const Place place{entry.series, entry.ordinal};
        const auto found = there.find(place);
        if (found == there.end())
            put(out, place, entry.sum);
        else
            join(database, entry.series, found->second, entry.sum);
    }
    for (const auto &[place, sum] : there) put(out, place, sum);
    out.push_back(']');
    return fmt::to_string(out);
}

} // namespace

void close_hour(Database &database, int64_t device, uint32_t command, State &state) {
    Sums there = sums_there(database, device, command, state.hour);
    const std::string entries = text_of(database, there, state.entries);
    if (entries != "[]")
        database.statement("INSERT OR REPLACE INTO rollup VALUES(?, ?, ?, ?)")
            .run(device, command, state.hour, std::string_view(entries));
    std::erase_if(state.entries, [](const Entry &e) { return e.form == Entry::Form::gone; });
    for (Entry &entry : state.entries) entry.sum = {};
}

} // namespace dtfleet::sqlite
