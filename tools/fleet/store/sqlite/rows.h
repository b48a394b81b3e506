// Rows as the rest of the service knows them.
#pragma once

#include "fleet/store/rows.h"
#include "fleet/store/sqlite/database.h"

#include <optional>
#include <vector>

namespace dtfleet::sqlite {

// Gives each row of a statement that is bound, and lets go of the last one.
template <typename Take> void each_row(Statement &statement, Take take) {
    while (statement.step()) take(statement);
    statement.reset();
}

// All rows of an answer.
template <typename Take> auto list_of(Statement &statement, Take take) {
    std::vector<decltype(take(statement))> list;
    each_row(statement, [&](const Statement &row) { list.push_back(take(row)); });
    return list;
}

// Of a column of `value`.
StoredValue stored_value(const Statement &row, int column);

std::optional<Series> find_series(Database &database, int64_t id);

// The states of a device's commands.
std::vector<CommandState> states_of(Database &database, int64_t device);

} // namespace dtfleet::sqlite
