// A slice of the history: what is read, from whichever database, and which of it is wanted.
#pragma once

#include "fleet/store/store.h"

#include <cstdint>
#include <vector>

namespace dtfleet {

// Walks over runs and, within each, over its values.
class HistorySource {
public:
    virtual ~HistorySource() = default;

    virtual int64_t device_behind(int64_t device) = 0; // by their ids; 0: none
    virtual int64_t last_collection() = 0;

    // The runs of a device in the order of time, those of `from` from an id on.
    struct Span {
        int64_t device = 0;
        Microseconds from = 0;
        Microseconds to = 0; // the first time that is not wanted
        int64_t id = 0;
        int64_t last = 0; // the largest id that is wanted
    };
    virtual void begin(const Span &span) = 0;

    // All runs from an id on, in the order of ids.
    virtual void begin(int64_t id) = 0;

    // False behind the last one. Otherwise the run without any value; its device where it is one
    // of all.
    virtual bool next_run(FlatValue &run) = 0;

    // Goes to the run's values, all but so many of the first; each has its series and ordinal, and
    // what it is is asked for alone.
    virtual void begin_values(int64_t skipped) = 0;
    virtual bool next_value(FlatValue &value) = 0;
    virtual StoredValue stored_value() = 0;
};

// As Reader::values.
bool read_history(HistorySource &source, const ValueQuery &query, Reader::Place &after,
                  size_t limit, std::vector<FlatValue> &rows);

} // namespace dtfleet
