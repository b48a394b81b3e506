#include "fleet/store/postgres/devices.h"

#include "fleet/store/fields.h"
#include "host/failure.h"

namespace dtfleet::postgres {
namespace {

using dtctl::Exit;
using dtctl::Failure;

std::optional<int64_t> find_device(Connection &connection, const std::string &name) {
    return connection.number("SELECT id FROM device WHERE name = $1 FOR UPDATE", name);
}

int64_t known_device(Connection &connection, const std::string &name) {
    const auto id = find_device(connection, name);
    if (!id) throw Failure(Exit::usage, name + ": there is no such device");
    return *id;
}

// A row that no run has reached, as a reload makes it for a name that is new.
bool is_blank(Connection &connection, int64_t device) {
    return !connection.number("SELECT 1 FROM collection WHERE device = $1 UNION ALL "
                              "SELECT 1 FROM fault WHERE device = $1 LIMIT 1",
                              device);
}

} // namespace

int64_t device_id(Connection &connection, const std::string &name) {
    if (const auto id = find_device(connection, name)) return *id;
    connection.query("INSERT INTO device(name) VALUES ($1) ON CONFLICT DO NOTHING", name);
    return known_device(connection, name);
}

// ---- what the inventory says --------------------------------------------------------------------

// An identity that was accepted holds until the inventory says something new. -1 stands for none.
// With another interval a device has another next turn, which whoever claims it finds out.
void take_devices(Connection &connection, const std::vector<Device> &devices) {
    std::vector<std::string> names, addresses, groups;
    std::vector<int64_t> ports, intervals, listed, identities;
    for (const Device &device : devices) {
        names.push_back(device.name);
        addresses.push_back(device.address);
        groups.push_back(text_of(device.groups));
        ports.push_back(device.port);
        intervals.push_back(device.interval.count());
        listed.push_back(device.enabled);
        identities.push_back(device.identity ? int64_t{*device.identity} : -1);
    }
    connection.query("UPDATE device SET listed = false WHERE listed AND name <> ALL($1)", names);
    connection.query(
        "INSERT INTO device AS d (name, address, groups, port, interval, listed, identity_listed, "
        "identity_expected) SELECT n, a, g, p, i, l <> 0, nullif(y, -1), nullif(y, -1) FROM "
        "unnest($1, $2, $3, $4, $5, $6, $7) AS w(n, a, g, p, i, l, y) "
        "ON CONFLICT(name) DO UPDATE SET address = excluded.address, groups = excluded.groups, "
        "port = excluded.port, interval = excluded.interval, listed = excluded.listed, "
        "identity_listed = excluded.identity_listed, identity_expected = CASE WHEN "
        "d.identity_listed IS NOT DISTINCT FROM excluded.identity_listed THEN d.identity_expected "
        "ELSE excluded.identity_listed END, due = CASE WHEN d.interval = excluded.interval THEN "
        "d.due "
        "ELSE 0 END, free_at = CASE WHEN d.interval = excluded.interval THEN d.free_at ELSE "
        "greatest(d.lease_until, d.paused_until) END WHERE (d.address, d.groups, d.port, "
        "d.interval, "
        "d.listed, d.identity_listed) IS DISTINCT FROM (excluded.address, excluded.groups, "
        "excluded.port, excluded.interval, excluded.listed, excluded.identity_listed)",
        names, addresses, groups, ports, intervals, listed, identities);
}

// ---- what operators do --------------------------------------------------------------------------

void pause_device(Connection &connection, const std::string &name, Microseconds until) {
    connection.query(
        "UPDATE device SET paused_until = $1, free_at = greatest(due, lease_until, $1) "
        "WHERE id = $2",
        until, known_device(connection, name));
}

// Whether the inventory has been changed before or comes after makes no difference: the row that
// it made for the new name gives way, and what it says goes to the one that has the history.
void rename_device(Connection &connection, const std::string &from, const std::string &to) {
    const int64_t id = known_device(connection, from);
    const auto other = find_device(connection, to);
    if (other == id) return;
    if (other && !is_blank(connection, *other))
        throw Failure(Exit::usage, to + ": there is a device of that name, with a history");
    if (other) {
        connection.query("UPDATE device d SET address = o.address, port = o.port, groups = "
                         "o.groups, interval = o.interval, listed = o.listed FROM device o "
                         "WHERE d.id = $1 AND o.id = $2",
                         id, *other);
        connection.query("DELETE FROM device WHERE id = $1", *other);
    }
    connection.query("UPDATE device SET name = $1 WHERE id = $2", to, id);
}

// Its rows may be many, so they are deleted bit by bit; nobody sees them from now on.
void forget_device(Connection &connection, const std::string &name) {
    connection.query("UPDATE device SET name = NULL, listed = false WHERE id = $1",
                     known_device(connection, name));
}

void accept_device(Connection &connection, const std::string &name) {
    connection.query("UPDATE device SET identity_expected = coalesce(identity_seen, "
                     "identity_expected) WHERE id = $1",
                     known_device(connection, name));
}

// ---- forgotten devices --------------------------------------------------------------------------

namespace {

constexpr int64_t slice = 200; // runs or other rows

bool deletes(Connection &connection, const char *sql, int64_t device, int64_t most) {
    return connection.query(sql, device, most).rows() != 0;
}

} // namespace

// Of several collectors one does it.
bool purge_some(Connection &connection) {
    Transaction transaction(connection, Transaction::Kind::write);
    const auto device = connection.number(
        "SELECT id FROM device WHERE name IS NULL ORDER BY id LIMIT 1 FOR UPDATE SKIP LOCKED");
    if (!device) return false;
    const bool more =
        deletes(connection,
                "DELETE FROM collection WHERE (time, run) IN (SELECT time, run FROM collection "
                "WHERE device = $1 LIMIT $2) RETURNING 1",
                *device, slice) ||
        deletes(connection,
                "DELETE FROM log WHERE (device, series, seq) IN (SELECT device, series, seq FROM "
                "log WHERE device = $1 LIMIT $2) RETURNING 1",
                *device, 10 * slice);
    if (!more) {
        for (const char *sql :
             {"DELETE FROM state WHERE device = $1", "DELETE FROM long_value WHERE device = $1",
              "DELETE FROM log_tail WHERE device = $1", "DELETE FROM rollup WHERE device = $1",
              "DELETE FROM fault WHERE device = $1", "DELETE FROM fault_file WHERE device = $1",
              "DELETE FROM device WHERE id = $1"})
            connection.query(sql, *device);
    }
    transaction.commit();
    return true;
}

} // namespace dtfleet::postgres
