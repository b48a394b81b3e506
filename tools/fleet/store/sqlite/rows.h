// Rows as the rest of the service knows them.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/sqlite/state.h"
#include "fleet/store/store.h"

#include <vector>

namespace dtfleet::sqlite {

// Gives each row of a statement that is bound, and lets go of the last one.
template <typename Take> void each_row(Statement &statement, Take take) {
    while (statement.step()) take(statement);
    statement.reset();
}

// What stands in a file may be damaged, so no number is trusted to be an enumerator.
Outcome outcome_of(int64_t number);
dt::decode::Kind type_of(int64_t number);

// Of a column of `value`.
StoredValue stored_value(const Statement &row, int column);

RunId run_id(std::string_view bytes);

// The states of a device's commands.
struct CommandState {
    uint32_t command = 0;
    State state;
};
std::vector<CommandState> states_of(Database &database, int64_t device);

} // namespace dtfleet::sqlite
