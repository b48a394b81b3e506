// A series over time, for a picture.
#pragma once

#include "fleet/store/postgres/connection.h"

namespace dtfleet::postgres {

struct ChartQuery {
    int64_t device = 0;
    int64_t series = 0;
    uint32_t ordinal = 0;
    Microseconds from = 0;
    Microseconds to = 0;
    size_t columns = 0;
    int64_t most_runs = 200'000; // of one command, that are read value by value: about a second
};

// Reader::points.
std::vector<Point> read_chart(Connection &connection, const ChartQuery &query);

} // namespace dtfleet::postgres
