#include "fleet/store/sqlite/fault_table.h"

#include "fleet/store/faults.h"
#include "fleet/store/sqlite/devices.h"
#include "fleet/store/sqlite/rows.h"

namespace dtfleet::sqlite {
namespace {

Bytes bytes_of(const Digest &digest) {
    return {std::string_view(reinterpret_cast<const char *>(digest.data()), digest.size())};
}

// 0: it is there already.
int64_t add_file(Database &database, int64_t device, const FaultFile &file, Microseconds now) {
    database
        .statement("INSERT OR IGNORE INTO fault_file(device, digest, pass_time, imported) "
                   "VALUES(?, ?, ?, ?)")
        .run(device, bytes_of(file.digest), file.written, now);
    return database.changes() == 0 ? 0 : database.last_id();
}

bool is_behind(Database &database, int64_t device, Microseconds written) {
    Statement &find =
        database.statement("SELECT 1 FROM fault_file WHERE device = ? AND pass_time > ?");
    find.with(device, written);
    const bool behind = find.step();
    find.reset();
    return behind;
}

// In the order in which the device wrote them, though an older file may have come later.
std::vector<FaultRow> rows_of(Database &database, int64_t device) {
    static const std::string of_device =
        std::string(select_faults) + "WHERE device = ? ORDER BY pass_time, id";
    return list_of(database.statement(of_device.c_str()).with(device), fault_in<Statement>);
}

} // namespace

size_t store_faults(Database &database, const FaultFile &file, Microseconds now) {
    const int64_t device = device_id(database, file.device);
    const int64_t id = add_file(database, device, file, now);
    if (id == 0) return 0;
    const std::vector<bool> known =
        known_rows(rows_of(database, device), file, is_behind(database, device, file.written));
    Statement &insert =
        database.statement("INSERT INTO fault(device, file, pass_time, fault, kind, stamp, "
                           "value_id, value) VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
    size_t added = 0;
    for (size_t i = 0; i < file.rows.size(); ++i) {
        if (known[i]) continue;
        const FaultRow &row = file.rows[i];
        insert.run(device, id, file.written, Bytes{row.fault}, std::string_view(row.kind),
                   Bytes{row.stamp}, row.value_id, Bytes{row.value});
        ++added;
    }
    return added;
}

} // namespace dtfleet::sqlite
