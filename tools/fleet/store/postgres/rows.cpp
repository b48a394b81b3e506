#include "fleet/store/postgres/rows.h"

namespace dtfleet::postgres {

Series series_in(const Result &rows, int row) {
    Series series;
    series.id = rows.number(row, 0);
    series.collector = rows.bytes(row, 1);
    series.section = static_cast<uint32_t>(rows.number(row, 2));
    series.key = static_cast<uint32_t>(rows.number(row, 3));
    series.type = type_of(rows.number(row, 4));
    series.name = rows.bytes(row, 5);
    series.unit = rows.bytes(row, 6);
    series.is_signed = rows.number(row, 7) != 0;
    series.is_log = rows.number(row, 8) != 0;
    return series;
}

std::optional<Series> find_series(Connection &connection, int64_t id) {
    const Result rows = connection.query(some_series, std::vector<int64_t>{id});
    if (rows.rows() == 0) return std::nullopt;
    return series_in(rows, 0);
}

std::vector<CommandState> states_of(Connection &connection, int64_t device) {
    std::vector<CommandState> states;
    const Result rows = connection.query(
        "SELECT command, time, full_day, hour, entries FROM state WHERE device = $1", device);
    for (int row = 0; row < rows.rows(); ++row) {
        State state{rows.number(row, 1), rows.number(row, 2), rows.number(row, 3), {}};
        if (!unpack(rows.bytes(row, 4), state)) state.entries.clear();
        states.push_back({static_cast<uint32_t>(rows.number(row, 0)), std::move(state)});
    }
    return states;
}

} // namespace dtfleet::postgres
