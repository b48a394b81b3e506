#include "fleet/store/postgres/rows.h"

namespace dtfleet::postgres {

std::vector<Series> find_series(Connection &connection,
                                const std::optional<std::vector<int64_t>> &ids) {
    const std::string some =
        std::string(select_series) + "WHERE $1::bigint[] IS NULL OR id = ANY($1) ORDER BY id";
    return list_of(connection.query(some.c_str(), ids), series_in<ResultRow>);
}

std::optional<Series> find_series(Connection &connection, int64_t id) {
    const std::vector<Series> found = find_series(connection, std::vector<int64_t>{id});
    if (found.empty()) return std::nullopt;
    return found[0];
}

std::vector<CommandState> states_of(Connection &connection, int64_t device) {
    const std::string of_device = std::string(select_states) + "WHERE device = $1";
    return list_of(connection.query(of_device.c_str(), device), state_in<ResultRow>);
}

} // namespace dtfleet::postgres
