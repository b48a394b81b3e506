// What of a run is stored: it is held against what the runs before it brought.
#pragma once

#include "fleet/store/state.h"

#include <functional>
#include <optional>
#include <unordered_map>

namespace dtfleet {

// A value that is stored. The bytes are the run's.
struct Row {
    int64_t series = 0;
    uint32_t ordinal = 0;
    StoredValue::Form form = StoredValue::Form::gone;
    uint64_t number = 0;
    std::string_view bytes;
};

struct Arrival {
    int64_t series = 0;
    uint32_t ordinal = 0;
    dt::decode::Kind type = dt::decode::Kind::int32;
    bool is_signed = false;
    uint64_t number = 0;
    std::string_view bytes;
};

class Comparison {
public:
    // Whether the bytes of that row of values are these.
    using SameRow = std::function<bool(int64_t row, std::string_view bytes)>;

    // Whether that arrival of the series' key came, as another type or as a part of a log.
    using HasCome = std::function<bool(int64_t series, uint32_t ordinal)>;

    struct Terms {
        Microseconds time = 0;   // of the run
        bool is_whole = false;   // what does not arrive is gone
        bool stores_all = false; // even what is the same
        int64_t first_row = 0;   // the id of the first row
    };

    Comparison(State before, const Terms &terms, SameRow same_row);

    void take(const Arrival &arrival);

    // After the last arrival: the rows, and the state that holds now.
    void finish(const HasCome &has_come);
    const std::vector<Row> &rows() const { return rows_; }
    State &state() { return after_; }

private:
    Entry *find(int64_t series, uint32_t ordinal);
    bool is_same(const Entry &entry, const Arrival &arrival) const;
    void put_value(Entry &entry, const Arrival &arrival) const;

    Terms terms_;
    SameRow same_row_;
    std::vector<Entry> before_;
    std::vector<bool> taken_; // of them
    size_t next_ = 0;         // where the next arrival stands if it comes as last time
    std::unordered_map<int64_t, std::vector<size_t>> by_series_; // when it does not
    State after_;
    std::vector<Row> rows_;
};

} // namespace dtfleet
