#include "fleet/store/sqlite/rows.h"

namespace dtfleet::sqlite {

StoredValue stored_value(const Statement &row, int column) {
    if (row.is_null(column)) return {};
    if (row.is_number(column))
        return {StoredValue::Form::number, static_cast<uint64_t>(row.number(column)), {}};
    return {StoredValue::Form::bytes, 0, std::string(row.bytes(column))};
}

std::optional<Series> find_series(Database &database, int64_t id) {
    static const std::string one_series = std::string(select_series) + "WHERE id = ?";
    std::optional<Series> found;
    each_row(database.statement(one_series.c_str()).with(id),
             [&](const Statement &row) { found = series_in(row); });
    return found;
}

std::vector<CommandState> states_of(Database &database, int64_t device) {
    static const std::string of_device = std::string(select_states) + "WHERE device = ?";
    std::vector<CommandState> states;
    each_row(database.statement(of_device.c_str()).with(device),
             [&](const Statement &row) { states.push_back(state_in(row)); });
    return states;
}

} // namespace dtfleet::sqlite
