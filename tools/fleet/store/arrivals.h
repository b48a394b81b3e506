// A run's values with their series, and the logs among them.
#pragma once

#include "fleet/store/comparison.h"
#include "fleet/store/series.h"

#include <map>
#include <span>
#include <string_view>
#include <vector>

namespace dtfleet {

class Arrivals {
public:
    struct Log {
        const Key *key;
        std::vector<std::string_view> strings; // stamps and texts in turns
        int64_t series() const { return key->ids[static_cast<size_t>(dt::decode::Kind::string)]; }
    };

    // The run must outlive it. Its series are known after the table's next resolve().
    Arrivals(const RunRecord &run, SeriesTable &series);

    bool is_empty() const { return values_.empty(); }
    const std::vector<Log> &logs() const { return logs_; }

    // Gives all values that are not of a log to the comparison.
    void give(Comparison &comparison) const;

    // Whether something came under the key of a series that often and once more.
    bool has_come(int64_t series, uint32_t ordinal);

private:
    struct Value {
        const Sample *sample;
        Key *key;
        uint32_t ordinal;
        bool is_of_log;
    };

    void find_logs();
    void judge_log(std::span<const size_t> places);

    const RunRecord &run_;
    SeriesTable &series_;
    std::vector<Value> values_;
    std::vector<Log> logs_;
    std::map<What, uint32_t> counts_; // made when it is asked for
};

} // namespace dtfleet
