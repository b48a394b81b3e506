// What the runs of one device and command brought last, packed into one BLOB: so a run reads and
// writes one row for what its values are compared with, however many they are.
#pragma once

#include "fleet/store/record.h"
#include "fleet/store/store.h"

#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

constexpr Microseconds microseconds_a_second = 1'000'000;
constexpr Microseconds microseconds_an_hour = 3600 * microseconds_a_second;
constexpr Microseconds microseconds_a_day = 24 * microseconds_an_hour;

// The hour or the day of a time, counted from 1970 (UTC); also of times before.
constexpr int64_t hour_of(Microseconds time) {
    return (time - (time < 0 ? microseconds_an_hour - 1 : 0)) / microseconds_an_hour;
}
constexpr int64_t day_of(Microseconds time) {
    return (time - (time < 0 ? microseconds_a_day - 1 : 0)) / microseconds_a_day;
}

// The numbers of one hour: 64-bit patterns, min and max as the series' sign says.
struct Sum {
    uint64_t n = 0; // 0: none, and the others mean nothing
    uint64_t min = 0;
    uint64_t max = 0;
    uint64_t last = 0;
    bool operator==(const Sum &) const = default;
};

struct Entry {
    enum class Form : uint8_t {
        number = 0,
        bytes = 1,
        row = 2, // bytes that are too long for this place: they stand in a row of `value`
        gone = 3,
    };
    static constexpr size_t most_bytes = 256; // longer ones are left in their row

    int64_t series = 0;
    uint32_t ordinal = 0;
    Form form = Form::gone;
    uint64_t number = 0;   // or the row's id
    std::string bytes;     // of the form `bytes`
    Microseconds time = 0; // of the run that brought it last or, gone, that first missed it
    Sum sum;               // of the state's hour, this value included
    bool operator==(const Entry &) const = default;
};

struct State {
    Microseconds time = 0;      // of the last run that brought anything
    int64_t full_day = 0;       // the last day whose first whole run was stored whole
    int64_t hour = 0;           // of the sums
    std::vector<Entry> entries; // as they arrived, then those that did not
};

// The entries alone; the other members are columns of their own.
std::string pack(const State &state);

// The entries of a state of that time. False when these are no entries of this program's.
bool unpack(std::string_view packed, State &state);

} // namespace dtfleet
