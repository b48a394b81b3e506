#include "fleet/store/sqlite/schema.h"

#include "fleet/store/record.h"
#include "fleet/store/sqlite/migration.h"
#include "host/failure.h"

#include <fmt/format.h>

#include <array>
#include <string>

namespace dtfleet::sqlite {
namespace {

using dtctl::Exit;
using dtctl::Failure;

// Times are microseconds since 1970 (UTC); days and hours count from there, too.
constexpr const char *tables = R"(
-- 'version' grows with each change that a reader may care for; 'next_collection' and 'next_value'
-- are the next ids, which are never used again, even when the last rows have been deleted.
CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;
INSERT INTO meta VALUES ('version', 1), ('next_collection', 1), ('next_value', 1);

CREATE TABLE device(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT UNIQUE,                          -- NULL: forgotten, its rows are being deleted
    address TEXT NOT NULL DEFAULT '',
    port INTEGER NOT NULL DEFAULT 0,
    groups TEXT NOT NULL DEFAULT '[]',         -- JSON
    interval INTEGER NOT NULL DEFAULT 0,       -- seconds
    listed INTEGER NOT NULL DEFAULT 0,         -- in the inventory, and enabled
    identity_listed INTEGER,                   -- as the inventory has it
    identity_expected INTEGER,                 -- that, or the one that was accepted since
    identity_seen INTEGER,
    address_seen TEXT NOT NULL DEFAULT '',
    paused_until INTEGER NOT NULL DEFAULT 0,
    last_try INTEGER NOT NULL DEFAULT 0,       -- these are of collections, not of self-tests
    last_ok INTEGER NOT NULL DEFAULT 0,
    failures INTEGER NOT NULL DEFAULT 0,
    last_outcome INTEGER NOT NULL DEFAULT 0,
    last_reason TEXT NOT NULL DEFAULT '',
    last_duration INTEGER NOT NULL DEFAULT 0); -- microseconds

CREATE TABLE series(
    id INTEGER PRIMARY KEY,
    collector NOT NULL,                        -- TEXT, or BLOB when it is no UTF-8
    section INTEGER NOT NULL,
    key INTEGER NOT NULL,
    type INTEGER NOT NULL,                     -- 1 int, 2 long, 3 string, 4 buffer
    name TEXT NOT NULL DEFAULT '',
    unit TEXT NOT NULL DEFAULT '',
    signed INTEGER NOT NULL DEFAULT 0,
    log INTEGER NOT NULL DEFAULT 0,            -- its strings have been taken as a log
    UNIQUE(collector, section, key, type));

CREATE TABLE outcome(id INTEGER PRIMARY KEY, text TEXT NOT NULL);

-- A run. Its stored values have the ids from first, count of them.
CREATE TABLE collection(
    id INTEGER PRIMARY KEY,
    run BLOB NOT NULL UNIQUE,
    device INTEGER NOT NULL,
    time INTEGER NOT NULL,
    command INTEGER NOT NULL,                  -- 3: a self-test
    outcome INTEGER NOT NULL,
    reason TEXT NOT NULL,
    identity INTEGER,
    address TEXT NOT NULL,
    messages INTEGER NOT NULL,
    bytes INTEGER NOT NULL,
    resends INTEGER NOT NULL,
    to_connect INTEGER NOT NULL,               -- microseconds
    to_opening INTEGER NOT NULL,
    to_end INTEGER NOT NULL,
    first INTEGER NOT NULL,
    count INTEGER NOT NULL,
    history INTEGER NOT NULL DEFAULT 0);       -- imported behind its time: the run after it in time
                                               -- was not compared with it
CREATE INDEX collection_device_time ON collection(device, time);

-- Append-only. value: INTEGER, the 64-bit pattern; BLOB, bytes; NULL, the key was missing.
CREATE TABLE value(
    id INTEGER PRIMARY KEY,
    series INTEGER NOT NULL,
    ordinal INTEGER NOT NULL,
    value);

-- What a device's runs of one command brought last, packed (see state.h).
CREATE TABLE state(
    id INTEGER PRIMARY KEY,
    device INTEGER NOT NULL,
    command INTEGER NOT NULL,
    time INTEGER NOT NULL,                     -- of the last run that brought anything
    full_day INTEGER NOT NULL,                 -- the last day whose first whole run was stored whole
    hour INTEGER NOT NULL,                     -- that is being summed up in the entries
    entries BLOB NOT NULL,
    UNIQUE(device, command));

-- The numbers of an hour: [[series, ordinal, n, min, max, last], ...] Those of the state's hour
-- are in its entries; there may be a row as well, of what was heard in that hour before.
CREATE TABLE rollup(
    device INTEGER NOT NULL,
    command INTEGER NOT NULL,
    hour INTEGER NOT NULL,
    entries TEXT NOT NULL,
    PRIMARY KEY(device, command, hour)) WITHOUT ROWID;

CREATE TABLE log(
    device INTEGER NOT NULL,
    series INTEGER NOT NULL,
    seq INTEGER NOT NULL,
    stamp BLOB NOT NULL,
    text BLOB NOT NULL,
    collection INTEGER NOT NULL,               -- that brought the line first, and its time
    time INTEGER NOT NULL,
    gap_before INTEGER NOT NULL,
    PRIMARY KEY(device, series, seq)) WITHOUT ROWID;

-- What a device sent of a log last: its lines from `first` on, `count` of them. They are not
-- deleted while it still sends them, or the next run could not be joined to them.
CREATE TABLE log_tail(
    device INTEGER NOT NULL,
    series INTEGER NOT NULL,
    command INTEGER NOT NULL,
    first INTEGER NOT NULL,
    count INTEGER NOT NULL,
    hash INTEGER NOT NULL,
    PRIMARY KEY(device, series, command)) WITHOUT ROWID;

-- Fault log files that were imported; the digest tells one that comes again.
CREATE TABLE fault_file(
    id INTEGER PRIMARY KEY,
    device INTEGER NOT NULL,
    digest BLOB NOT NULL,
    pass_time INTEGER NOT NULL,                -- when the device wrote it
    imported INTEGER NOT NULL,
    UNIQUE(device, digest));

CREATE TABLE fault(
    id INTEGER PRIMARY KEY,
    device INTEGER NOT NULL,
    file INTEGER NOT NULL,                     -- that brought it first, and its time
    pass_time INTEGER NOT NULL,
    fault BLOB NOT NULL,
    kind TEXT NOT NULL,                        -- a line's init or run, or the kind of a value
    stamp BLOB NOT NULL,                       -- of a line
    value_id INTEGER NOT NULL,
    value BLOB NOT NULL);                      -- a line's text, a number in decimal, or bytes
CREATE INDEX fault_device ON fault(device, id);

-- Older programs read these, too, so no operator that they do not know.
CREATE VIEW rollup_hour AS
    SELECT r.device AS device, r.command AS command, r.hour AS hour,
           json_extract(e.value, '$[0]') AS series, json_extract(e.value, '$[1]') AS ordinal,
           json_extract(e.value, '$[2]') AS n, json_extract(e.value, '$[3]') AS min,
           json_extract(e.value, '$[4]') AS max, json_extract(e.value, '$[5]') AS last
    FROM rollup r, json_each(r.entries) e;

CREATE VIEW value_flat AS
    SELECT lower(hex(c.run)) AS run, d.name AS device, c.time AS time, o.text AS status,
           c.command AS command, s.collector AS collector, s.section AS section, s.key AS key,
           v.ordinal AS ordinal,
           CASE WHEN v.value IS NULL THEN 'gone' WHEN s.type = 1 THEN 'int'
                WHEN s.type = 2 THEN 'long' WHEN s.type = 3 THEN 'string' ELSE 'buffer' END AS type,
           CASE typeof(v.value) WHEN 'integer' THEN v.value END AS number,
           CASE typeof(v.value) WHEN 'blob' THEN v.value END AS bytes
    FROM device d
    JOIN collection c ON c.device = d.id
    CROSS JOIN outcome o ON o.id = c.outcome
    CROSS JOIN value v ON v.id BETWEEN c.first AND c.first + c.count - 1
    CROSS JOIN series s ON s.id = v.series
    WHERE d.name IS NOT NULL;
)";

// SQL from each version to the next.
constexpr std::array<const char *, schema_version - 1> steps{};

void name_outcomes(Database &database) {
    Statement &insert = database.statement("INSERT INTO outcome VALUES(?, ?)");
    for (size_t i = 0; i < outcomes; ++i)
        insert.run(i, std::string_view(text_of(static_cast<Outcome>(i))));
}

// Several may open the new file at once: the second finds the first one's tables.
void make_tables(Database &database) {
    Transaction transaction(database, Transaction::Kind::write);
    if (database.number("PRAGMA user_version") != 0) return;
    database.execute(tables);
    name_outcomes(database);
    database.execute(fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {}",
                                 application_id, schema_version)
                         .c_str());
    transaction.commit();
}

// What a commit has written survives the end of the process; a power cut may take the last of it.
// Pages that run after run changes are written back once in many runs. The pragma for the freed
// pages works in an empty file alone, before its first table.
void set_up(Database &database) {
    database.execute("PRAGMA auto_vacuum = INCREMENTAL; PRAGMA journal_mode = WAL;"
                     "PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 4000;"
                     "PRAGMA journal_size_limit = 67108864; PRAGMA cache_size = -32768;"
                     "PRAGMA temp_store = MEMORY");
}

int64_t version_of(Database &database) {
    const int64_t version = database.number("PRAGMA user_version");
    const int64_t application = database.number("PRAGMA application_id");
    const bool is_empty = database.number("SELECT count(*) FROM sqlite_schema") == 0;
    if (!is_empty && application != application_id)
        throw Failure(Exit::broken, database.path() + ": this database is another program's");
    if (version > schema_version)
        throw Failure(Exit::broken,
                      fmt::format("{}: version {} of this database is newer than this program's {}",
                                  database.path(), version, schema_version));
    return is_empty ? 0 : version;
}

} // namespace

int64_t open_schema(Database &database) {
    const int64_t version = version_of(database);
    set_up(database);
    if (version == 0) make_tables(database);
    migrate(database, steps);
    return version;
}

void check_schema(Database &database) {
    const int64_t version = version_of(database);
    if (version == schema_version) return;
    throw Failure(Exit::broken,
                  version == 0
                      ? database.path() + ": nothing has been stored in this database yet"
                      : fmt::format("{}: version {} of this database is older than this program's "
                                    "{}; start the service once",
                                    database.path(), version, schema_version));
}

} // namespace dtfleet::sqlite
