#include "fleet/store/sqlite/rows.h"

namespace dtfleet::sqlite {

StoredValue stored_value(const Statement &row, int column) {
    if (row.is_null(column)) return {};
    if (row.is_number(column))
        return {StoredValue::Form::number, static_cast<uint64_t>(row.number(column)), {}};
    return {StoredValue::Form::bytes, 0, std::string(row.bytes(column))};
}

Series series_in(const Statement &row) {
    Series series;
    series.id = row.number(0);
    series.collector = row.bytes(1);
    series.section = static_cast<uint32_t>(row.number(2));
    series.key = static_cast<uint32_t>(row.number(3));
    series.type = type_of(row.number(4));
    series.name = row.bytes(5);
    series.unit = row.bytes(6);
    series.is_signed = row.number(7) != 0;
    series.is_log = row.number(8) != 0;
    return series;
}

std::optional<Series> find_series(Database &database, int64_t id) {
    std::optional<Series> found;
    each_row(database.statement(one_series).with(id),
             [&](const Statement &row) { found = series_in(row); });
    return found;
}

// Entries that cannot be read are left out; the next run writes them anew.
std::vector<CommandState> states_of(Database &database, int64_t device) {
    std::vector<CommandState> states;
    Statement &find = database.statement(
        "SELECT command, time, full_day, hour, entries FROM state WHERE device = ?");
    each_row(find.with(device), [&](const Statement &row) {
        State state{row.number(1), row.number(2), row.number(3), {}};
        if (!unpack(row.bytes(4), state)) state.entries.clear();
        states.push_back({static_cast<uint32_t>(row.number(0)), std::move(state)});
    });
    return states;
}

} // namespace dtfleet::sqlite
