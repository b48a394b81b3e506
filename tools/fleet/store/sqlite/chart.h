// A series over time, for a picture.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/store.h"

#include <vector>

namespace dtfleet::sqlite {

struct ChartQuery {
    int64_t device = 0;
    int64_t series = 0;
    uint32_t ordinal = 0;
    Microseconds from = 0;
    Microseconds to = 0;
    size_t columns = 0;
    size_t most_looks = 2'000'000; // about a quarter of a second
};

// Reader::points, in short transactions of its own.
std::vector<Point> read_chart(Database &database, const ChartQuery &query);

} // namespace dtfleet::sqlite
