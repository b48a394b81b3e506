// A run's values with their series, and the logs among them.
#pragma once

#include "fleet/store/postgres/series.h"
#include "fleet/store/sqlite/comparison.h"

#include <map>
#include <span>
#include <string_view>
#include <vector>

namespace dtfleet::postgres {

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

    // How often something came under each key.
    std::map<What, uint32_t> counts() const;

    // Gives all values that are not of a log to the comparison.
    void give(sqlite::Comparison &comparison) const;

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
};

} // namespace dtfleet::postgres
