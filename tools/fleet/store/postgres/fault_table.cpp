#include "fleet/store/postgres/fault_table.h"

#include "fleet/store/faults.h"
#include "fleet/store/postgres/devices.h"
#include "fleet/store/postgres/rows.h"

namespace dtfleet::postgres {
namespace {

Bytes bytes_of(const Digest &digest) {
    return {{reinterpret_cast<const char *>(digest.data()), digest.size()}};
}

// Nothing: it is there already.
std::optional<int64_t> add_file(Connection &connection, int64_t device, const FaultFile &file) {
    return connection.number(
        "INSERT INTO fault_file(device, digest, pass_time, imported) VALUES ($1, $2, $3, clock()) "
        "ON CONFLICT DO NOTHING RETURNING id",
        device, bytes_of(file.digest), file.written);
}

// In the order in which the device wrote them, though an older file may have come later.
std::vector<FaultRow> rows_of(Connection &connection, int64_t device) {
    const std::string of_device =
        std::string(select_faults) + "WHERE device = $1 ORDER BY pass_time, id";
    return list_of(connection.query(of_device.c_str(), device), fault_in<ResultRow>);
}

} // namespace

size_t store_faults(Connection &connection, const FaultFile &file) {
    const int64_t device = device_id(connection, file.device);
    const auto id = add_file(connection, device, file);
    if (!id) return 0;
    const bool is_behind = connection
                               .number("SELECT 1 FROM fault_file WHERE device = $1 AND "
                                       "pass_time > $2 LIMIT 1",
                                       device, file.written)
                               .has_value();
    const std::vector<bool> known = known_rows(rows_of(connection, device), file, is_behind);
    std::vector<Bytes> faults, stamps, values;
    std::vector<std::string> kinds;
    std::vector<int64_t> ids;
    faults.reserve(file.rows.size());
    for (size_t i = 0; i < file.rows.size(); ++i) {
        if (known[i]) continue;
        const FaultRow &row = file.rows[i];
        faults.push_back({row.fault});
        kinds.push_back(row.kind);
        stamps.push_back({row.stamp});
        ids.push_back(row.value_id);
        values.push_back({row.value});
    }
    connection.query("INSERT INTO fault(device, file, pass_time, fault, kind, stamp, value_id, "
                     "value) SELECT $1, $2, $3, f, k, s, i, v FROM unnest($4, $5, $6, $7, $8) "
                     "WITH ORDINALITY AS r(f, k, s, i, v, n) ORDER BY n",
                     device, *id, file.written, faults, kinds, stamps, ids, values);
    return faults.size();
}

} // namespace dtfleet::postgres
