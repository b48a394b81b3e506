#include "fleet/store/history.h"

#include <algorithm>

namespace dtfleet {
namespace {

// What a slice looks at, wanted or not: some hundredths of a second.
constexpr size_t most_looks = 100'000;

class Slice {
public:
    Slice(HistorySource &source, const ValueQuery &query, Reader::Place &after, size_t limit,
          std::vector<FlatValue> &rows)
        : source_(source), query_(query), after_(after), limit_(limit), rows_(rows),
          series_(query.series) {
        std::sort(series_.begin(), series_.end());
        rows_.clear();
    }

    // False when there is nothing behind it.
    bool read() {
        for (;;) {
            const bool is_by_time = has_time() && after_.last != INT64_MAX;
            is_by_time ? begin_device() : source_.begin(after_.collection);
            FlatValue run;
            while (source_.next_run(run))
                if (!read_run(run)) return true;
            if (!is_by_time || !go_behind()) return false;
            if (++looks_ > most_looks) return true;
        }
    }

private:
    // Then it is read by time, device after device: ids grow with the time only while nobody sets
    // the clock, and to look at all runs could take as long as it likes.
    bool has_time() const { return query_.device || query_.from > 0 || query_.to < INT64_MAX; }

    void begin_device() {
        if (after_.last == 0) after_.last = source_.last_collection();
        if (after_.device == 0) after_.device = query_.device.value_or(source_.device_behind(0));
        const Microseconds from =
            after_.collection == 0 ? query_.from : std::max(query_.from, after_.time);
        source_.begin({after_.device, from, query_.to, after_.collection, after_.last});
    }

    // True: there is another device. Otherwise more may be stored later, which is read by its ids,
    // whatever its time.
    bool go_behind() {
        const int64_t next = query_.device ? 0 : source_.device_behind(after_.device);
        after_ = {next, 0, 0, 0, after_.last};
        if (next == 0) after_ = {0, after_.last + 1, 0, 0, INT64_MAX};
        return next != 0;
    }

    bool is_wanted(const FlatValue &run) const {
        return run.time >= query_.from && run.time < query_.to &&
               (!query_.device || run.device == *query_.device);
    }

    // False when the slice is full before the run is at its end.
    bool read_run(FlatValue &run) {
        const bool is_begun = run.collection == after_.collection;
        after_ = {after_.device, run.collection, run.time, is_begun ? after_.value : 0,
                  after_.last};
        if (++looks_ > most_looks) return false;
        if (!is_wanted(run)) return true;
        source_.begin_values(after_.value);
        while (source_.next_value(run)) {
            if (rows_.size() >= limit_ || ++looks_ > most_looks) return false;
            ++after_.value;
            take(run);
        }
        return true;
    }

    void take(FlatValue &value) {
        if (!series_.empty() && !std::binary_search(series_.begin(), series_.end(), value.series))
            return;
        value.value = source_.stored_value();
        rows_.push_back(value);
    }

    HistorySource &source_;
    const ValueQuery &query_;
    Reader::Place &after_;
    size_t limit_;
    std::vector<FlatValue> &rows_;
    std::vector<int64_t> series_;
    size_t looks_ = 0;
};

} // namespace

bool read_history(HistorySource &source, const ValueQuery &query, Reader::Place &after,
                  size_t limit, std::vector<FlatValue> &rows) {
    return Slice(source, query, after, limit, rows).read();
}

} // namespace dtfleet
