#include "fleet/store/sqlite/rows.h"

#include <algorithm>

namespace dtfleet::sqlite {

Outcome outcome_of(int64_t number) {
    const bool known = number >= 0 && number < static_cast<int64_t>(outcomes);
    return known ? static_cast<Outcome>(number) : Outcome::malformed;
}

dt::decode::Kind type_of(int64_t number) {
    using dt::decode::Kind;
    return static_cast<Kind>(std::clamp<int64_t>(number, static_cast<int64_t>(Kind::int32),
                                                 static_cast<int64_t>(Kind::buffer)));
}

StoredValue stored_value(const Statement &row, int column) {
    if (row.is_null(column)) return {};
    if (row.is_number(column))
        return {StoredValue::Form::number, static_cast<uint64_t>(row.number(column)), {}};
    return {StoredValue::Form::bytes, 0, std::string(row.bytes(column))};
}

RunId run_id(std::string_view bytes) {
    RunId id{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), id.size()), id.begin());
    return id;
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
