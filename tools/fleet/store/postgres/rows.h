// Rows as the rest of the service knows them.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/sqlite/rows.h"

namespace dtfleet::postgres {

using sqlite::CommandState;
using sqlite::outcome_of;
using sqlite::type_of;

// The states of a device's commands. Entries that cannot be read are left out; the next run writes
// them anew.
inline std::vector<CommandState> states_of(Connection &connection, int64_t device) {
    std::vector<CommandState> states;
    const Result rows = connection.query(
        "SELECT command, time, full_day, hour, entries FROM state WHERE device = $1", device);
    for (int row = 0; row < rows.rows(); ++row) {
        sqlite::State state{rows.number(row, 1), rows.number(row, 2), rows.number(row, 3), {}};
        if (!unpack(rows.bytes(row, 4), state)) state.entries.clear();
        states.push_back({static_cast<uint32_t>(rows.number(row, 0)), std::move(state)});
    }
    return states;
}

} // namespace dtfleet::postgres
