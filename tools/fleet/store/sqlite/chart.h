// What charts are made from, in a file.
#pragma once

#include "fleet/store/chart.h"
#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

constexpr size_t most_looks_of_chart = 2'000'000; // about a quarter of a second

// Reader::points, in short transactions of its own.
std::vector<Point> read_chart(Database &database, const ChartQuery &query,
                              size_t most_looks = most_looks_of_chart);

} // namespace dtfleet::sqlite
