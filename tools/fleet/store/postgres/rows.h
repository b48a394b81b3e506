// Rows as the rest of the service knows them.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/rows.h"

#include <vector>

namespace dtfleet::postgres {

// All rows of an answer.
template <typename Take> auto list_of(const Result &rows, Take take) {
    std::vector<decltype(take(ResultRow(rows, 0)))> list;
    list.reserve(static_cast<size_t>(rows.rows()));
    for (int row = 0; row < rows.rows(); ++row) list.push_back(take(ResultRow(rows, row)));
    return list;
}

// Of some ids, or all of them.
std::vector<Series> find_series(Connection &connection,
                                const std::optional<std::vector<int64_t>> &ids);
std::optional<Series> find_series(Connection &connection, int64_t id);

// The states of a device's commands.
std::vector<CommandState> states_of(Connection &connection, int64_t device);

} // namespace dtfleet::postgres
