#include "fleet/store/sqlite/devices.h"

#include "fleet/store/fields.h"
#include "host/failure.h"

namespace dtfleet::sqlite {
namespace {

using dtctl::Exit;
using dtctl::Failure;

// 0: there is none.
int64_t find_device(Database &database, const std::string &name) {
    Statement &find = database.statement("SELECT id FROM device WHERE name = ?");
    find.with(std::string_view(name));
    const int64_t id = find.step() ? find.number(0) : 0;
    find.reset();
    return id;
}

int64_t known_device(Database &database, const std::string &name) {
    const int64_t id = find_device(database, name);
    if (id == 0) throw Failure(Exit::usage, name + ": there is no such device");
    return id;
}

// A row that no run has reached, as a reload makes it for a name that is new.
bool is_blank(Database &database, int64_t device) {
    Statement &find = database.statement("SELECT 1 FROM collection WHERE device = ?1 UNION ALL "
                                         "SELECT 1 FROM fault WHERE device = ?1 LIMIT 1");
    find.with(device);
    const bool has_rows = find.step();
    find.reset();
    return !has_rows;
}

void bind_identity(Statement &statement, int at, std::optional<uint16_t> identity) {
    if (identity) statement.bind(at, int64_t{*identity});
}

} // namespace

int64_t device_id(Database &database, const std::string &name) {
    const int64_t id = find_device(database, name);
    if (id != 0) return id;
    database.statement("INSERT INTO device(name) VALUES(?)").run(std::string_view(name));
    return database.last_id();
}

// ---- what runs tell -----------------------------------------------------------------------------

namespace {

// The first identity that is seen is the one expected, where the inventory names none.
void note_identity(Database &database, int64_t device, const RunRecord &run) {
    if (run.identity)
        database
            .statement("UPDATE device SET identity_seen = ?1, identity_expected = "
                       "coalesce(identity_expected, ?1) WHERE id = ?2 AND "
                       "(identity_seen IS NOT ?1 OR identity_expected IS NULL)")
            .run(*run.identity, device);
    if (!run.address.empty())
        database
            .statement("UPDATE device SET address_seen = ?1 WHERE id = ?2 AND address_seen <> ?1")
            .run(std::string_view(run.address), device);
}

} // namespace

// A run that this service cut off says nothing of the device.
void note_run(Database &database, int64_t device, const RunRecord &run) {
    note_identity(database, device, run);
    if (run.kind == Kind::selftest || run.outcome == Outcome::stopped) return;
    const bool whole = is_whole(run.outcome);
    const uint64_t duration = uint64_t{run.to_connect} + run.to_opening + run.to_end;
    database
        .statement(
            "UPDATE device SET last_try = ?1, last_ok = CASE WHEN ?2 THEN ?1 ELSE last_ok "
            "END, failures = CASE WHEN ?2 THEN 0 ELSE failures + 1 END, last_outcome = ?3, "
            "last_reason = ?4, last_duration = ?5 WHERE id = ?6 AND (NOT ?7 OR last_try < ?1)")
        .run(run.time, whole, static_cast<int>(run.outcome), std::string_view(run.reason), duration,
             device, run.imported);
}

// ---- what the inventory says --------------------------------------------------------------------

// An identity that was accepted holds until the inventory says something new.
void take_devices(Database &database, const std::vector<Device> &devices) {
    database.statement("UPDATE device SET listed = 0 WHERE listed <> 0").run();
    Statement &take = database.statement(
        "INSERT INTO device(name, address, port, groups, interval, listed, identity_listed, "
        "identity_expected) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?7) ON CONFLICT(name) DO UPDATE SET "
        "address = ?2, port = ?3, groups = ?4, interval = ?5, listed = ?6, identity_listed = ?7, "
        "identity_expected = CASE WHEN identity_listed IS ?7 THEN identity_expected ELSE ?7 END");
    for (const Device &device : devices) {
        const std::string groups = text_of(device.groups);
        take.with(std::string_view(device.name), std::string_view(device.address), device.port,
                  std::string_view(groups), device.interval.count(), device.enabled, nullptr);
        bind_identity(take, 7, device.identity);
        take.step();
        take.reset();
    }
}

// ---- what operators do --------------------------------------------------------------------------

void pause_device(Database &database, const std::string &name, Microseconds until) {
    const int64_t id = known_device(database, name);
    database.statement("UPDATE device SET paused_until = ? WHERE id = ?").run(until, id);
}

// Whether the inventory has been changed before or comes after makes no difference: the row that
// it made for the new name gives way, and what it says goes to the one that has the history.
void rename_device(Database &database, const std::string &from, const std::string &to) {
    const int64_t id = known_device(database, from);
    const int64_t other = find_device(database, to);
    if (other == id) return;
    if (other != 0 && !is_blank(database, other))
        throw Failure(Exit::usage, to + ": there is a device of that name, with a history");
    if (other != 0)
        database
            .statement("UPDATE device SET (address, port, groups, interval, listed) = (SELECT "
                       "address, port, groups, interval, listed FROM device WHERE id = ?2) "
                       "WHERE id = ?1")
            .run(id, other);
    database.statement("DELETE FROM device WHERE id = ?").run(other);
    database.statement("UPDATE device SET name = ? WHERE id = ?").run(std::string_view(to), id);
}

// Its rows may be many, so they are deleted bit by bit; nobody sees them from now on.
void forget_device(Database &database, const std::string &name) {
    const int64_t id = known_device(database, name);
    database.statement("UPDATE device SET name = NULL, listed = 0 WHERE id = ?").run(id);
}

void accept_device(Database &database, const std::string &name) {
    const int64_t id = known_device(database, name);
    database
        .statement("UPDATE device SET identity_expected = coalesce(identity_seen, "
                   "identity_expected) WHERE id = ?")
        .run(id);
}

// ---- forgotten devices --------------------------------------------------------------------------

namespace {

constexpr int64_t slice = 200; // collections or other rows

// With their values, of which a run may have thousands.
bool purge_collections(Database &database, int64_t device) {
    Statement &find = database.statement(
        "SELECT id, first, count FROM collection WHERE device = ? ORDER BY time LIMIT ?");
    find.with(device, slice);
    int64_t values = 0;
    std::vector<int64_t> ids;
    while (values < 10'000 && find.step()) {
        database.statement("DELETE FROM value WHERE id BETWEEN ?1 AND ?1 + ?2 - 1")
            .run(find.number(1), find.number(2));
        values += find.number(2);
        ids.push_back(find.number(0));
    }
    find.reset();
    for (const int64_t id : ids) database.statement("DELETE FROM collection WHERE id = ?").run(id);
    return !ids.empty();
}

bool purge_rest(Database &database, int64_t device) {
    database.statement("DELETE FROM state WHERE device = ?").run(device);
    database.statement("DELETE FROM log_tail WHERE device = ?").run(device);
    database.statement("DELETE FROM fault WHERE device = ?").run(device);
    database.statement("DELETE FROM fault_file WHERE device = ?").run(device);
    database
        .statement("DELETE FROM rollup WHERE device = ?1 AND (command, hour) IN "
                   "(SELECT command, hour FROM rollup WHERE device = ?1 LIMIT ?2)")
        .run(device, slice);
    if (database.changes() != 0) return true;
    database
        .statement("DELETE FROM log WHERE device = ?1 AND (series, seq) IN "
                   "(SELECT series, seq FROM log WHERE device = ?1 LIMIT ?2)")
        .run(device, 10 * slice);
    return database.changes() != 0;
}

} // namespace

bool purge_some(Database &database) {
    const int64_t device =
        database.number("SELECT id FROM device WHERE name IS NULL ORDER BY id LIMIT 1");
    if (device == 0) return false;
    Transaction transaction(database, Transaction::Kind::write);
    if (!purge_collections(database, device) && !purge_rest(database, device))
        database.statement("DELETE FROM device WHERE id = ?").run(device);
    transaction.commit();
    return true;
}

} // namespace dtfleet::sqlite
