// What charts are made from, on a server.
#pragma once

#include "fleet/store/chart.h"
#include "fleet/store/postgres/connection.h"

namespace dtfleet::postgres {

constexpr int64_t most_runs_of_chart = 200'000; // of one command: about a second

// Reader::points.
std::vector<Point> read_chart(Connection &connection, const ChartQuery &query,
                              int64_t most_runs = most_runs_of_chart);

} // namespace dtfleet::postgres
