#include "fleet/store/postgres/schema.h"

#include "fleet/store/record.h"
#include "host/failure.h"

#include <fmt/format.h>

namespace dtfleet::postgres {
namespace {

using dtctl::Exit;
using dtctl::Failure;

// Times are microseconds since 1970 (UTC); days and hours count from there, too.
constexpr const char *tables = R"(
CREATE SCHEMA IF NOT EXISTS dtfleet;
SET LOCAL search_path = dtfleet;

-- 'next_collection' is the next run's id. Who writes runs holds its row from there to the end of
-- the transaction: so runs become visible in the order of their ids. 'changes' counts all other
-- changes that a reader may care for. 'next_sweep' is when old rows are looked for again. The clock was
-- last seen at 'clock_seen'; 'clock_accepted' counts how often somebody has said that it is right.
-- 'inventory' counts the changes of the inventory; at 0 there is none yet.
CREATE TABLE meta(key text PRIMARY KEY, value bigint NOT NULL);
INSERT INTO meta VALUES ('next_collection', 1), ('changes', 0), ('next_sweep', 0),
    ('clock_seen', 0), ('clock_accepted', 0), ('inventory', 0);

-- What all collectors ask, in the form of a file. It has one row.
CREATE TABLE inventory(text bytea NOT NULL);
INSERT INTO inventory VALUES ('');

-- Microseconds since 1970, and it goes on within a transaction.
CREATE FUNCTION clock() RETURNS bigint LANGUAGE sql VOLATILE AS
    $$ SELECT (extract(epoch FROM clock_timestamp()) * 1000000)::bigint $$;

CREATE TABLE device(
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    name text UNIQUE,                             -- NULL: forgotten, its rows are being deleted
    address text NOT NULL DEFAULT '',
    port integer NOT NULL DEFAULT 0,
    groups text NOT NULL DEFAULT '[]',            -- JSON
    interval bigint NOT NULL DEFAULT 0,           -- seconds
    listed boolean NOT NULL DEFAULT false,        -- in the inventory, and enabled
    identity_listed integer,                      -- as the inventory has it
    identity_expected integer,                    -- that, or the one that was accepted since
    identity_seen integer,
    address_seen text NOT NULL DEFAULT '',
    paused_until bigint NOT NULL DEFAULT 0,
    last_try bigint NOT NULL DEFAULT 0,           -- these are of collections, not of self-tests
    last_ok bigint NOT NULL DEFAULT 0,
    failures bigint NOT NULL DEFAULT 0,
    last_outcome smallint NOT NULL DEFAULT 0,
    last_reason text NOT NULL DEFAULT '',
    last_duration bigint NOT NULL DEFAULT 0,      -- microseconds
    due bigint NOT NULL DEFAULT 0,                -- by the database's clock, as what follows
    lease_until bigint NOT NULL DEFAULT 0,        -- until then `worker` alone asks it
    free_at bigint NOT NULL DEFAULT 0,            -- the latest of due, lease_until, paused_until
    worker integer NOT NULL DEFAULT 0,
    epoch bigint NOT NULL DEFAULT 0               -- counts the leases
) WITH (fillfactor = 60);
CREATE INDEX device_free ON device(free_at) WHERE listed;

-- The collectors that are at work. Two lives of one process in the same `home` are one row.
CREATE TABLE worker(
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    name text NOT NULL,
    home text UNIQUE,
    seen bigint NOT NULL,
    held bigint NOT NULL DEFAULT 0,               -- leases
    rate bigint NOT NULL DEFAULT 0,               -- runs in 1000 seconds
    lag bigint NOT NULL DEFAULT 0,                -- microseconds by which it asks late
    oldest bigint NOT NULL DEFAULT 0);            -- of its leases, the age in microseconds

CREATE TABLE series(
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    collector bytea NOT NULL,
    collector_text text NOT NULL,                 -- escaped where it is no text
    section bigint NOT NULL,
    key bigint NOT NULL,
    type smallint NOT NULL,                       -- 1 int, 2 long, 3 string, 4 buffer
    name text NOT NULL DEFAULT '',
    unit text NOT NULL DEFAULT '',
    signed boolean NOT NULL DEFAULT false,
    log boolean NOT NULL DEFAULT false,           -- its strings have been taken as a log
    UNIQUE(collector, section, key, type));

CREATE TABLE outcome(id smallint PRIMARY KEY, text text NOT NULL);

-- A run and its stored values, of which `series` has one element each. A value is a number (the
-- 64-bit pattern), bytes, or neither: the key was missing. Arrays of which all elements would be
-- 0 or NULL are NULL themselves.
CREATE TABLE collection(
    time bigint NOT NULL,
    run uuid NOT NULL,
    id bigint NOT NULL,
    device integer NOT NULL,
    command bigint NOT NULL,                      -- 3: a self-test
    outcome smallint NOT NULL,
    reason text NOT NULL,
    identity integer,
    address text NOT NULL,
    messages bigint NOT NULL,
    bytes bigint NOT NULL,
    resends bigint NOT NULL,
    to_connect bigint NOT NULL,                   -- microseconds
    to_opening bigint NOT NULL,
    to_end bigint NOT NULL,
    history boolean NOT NULL,                     -- not compared with what was there: it came late
    series integer[],
    ordinals integer[],
    numbers bigint[],
    texts bytea[],
    PRIMARY KEY(time, run)) PARTITION BY RANGE(time);
CREATE INDEX collection_device_time ON collection(device, time);
CREATE INDEX collection_id ON collection(id);

-- What a device's runs of one command brought last, packed as in the other engine. `serial` counts
-- its changes: who would write another one than it has read must read again.
CREATE TABLE state(
    device integer NOT NULL,
    command bigint NOT NULL,
    serial bigint NOT NULL,
    time bigint NOT NULL,                         -- of the last run that brought anything
    full_day bigint NOT NULL,                     -- the last day whose first whole run was stored whole
    hour bigint NOT NULL,                         -- that is being summed up in the entries
    has_longs boolean NOT NULL,                   -- some of its values are in long_value
    entries bytea NOT NULL,
    PRIMARY KEY(device, command)) WITH (fillfactor = 60);
ALTER TABLE state ALTER entries SET STORAGE EXTERNAL;
ALTER TABLE state SET (toast_tuple_target = 8160); -- in its row as long as a page holds it

-- The values that are too long for a state.
CREATE TABLE long_value(
    device integer NOT NULL,
    command bigint NOT NULL,
    series integer NOT NULL,
    ordinal integer NOT NULL,
    bytes bytea NOT NULL,
    PRIMARY KEY(device, command, series, ordinal));

-- The numbers of an hour. Those of the state's hour are in its entries; there may be a row as well,
-- of what was heard in that hour before.
CREATE TABLE rollup(
    device integer NOT NULL,
    command bigint NOT NULL,
    hour bigint NOT NULL,
    serial bigint NOT NULL,
    series integer[] NOT NULL,
    ordinals integer[] NOT NULL,
    n bigint[] NOT NULL,
    min bigint[] NOT NULL,
    max bigint[] NOT NULL,
    last bigint[] NOT NULL,
    PRIMARY KEY(device, command, hour));
CREATE INDEX rollup_by_hour ON rollup(hour);

CREATE TABLE log(
    device integer NOT NULL,
    series integer NOT NULL,
    seq bigint NOT NULL,
    stamp bytea NOT NULL,
    text bytea NOT NULL,
    collection bigint NOT NULL,                   -- that brought the line first, and its time
    time bigint NOT NULL,
    gap_before boolean NOT NULL,
    PRIMARY KEY(device, series, seq));

-- What a device sent of a log last: its lines from `first` on, `count` of them. They are not
-- deleted while it still sends them, or the next run could not be joined to them.
CREATE TABLE log_tail(
    device integer NOT NULL,
    series integer NOT NULL,
    command bigint NOT NULL,
    first bigint NOT NULL,
    count bigint NOT NULL,
    hash bigint NOT NULL,
    PRIMARY KEY(device, series, command));

-- Fault log files that were imported; the digest tells one that comes again.
CREATE TABLE fault_file(
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    device integer NOT NULL,
    digest bytea NOT NULL,
    pass_time bigint NOT NULL,                    -- when the device wrote it
    imported bigint NOT NULL,
    UNIQUE(device, digest));

CREATE TABLE fault(
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    device integer NOT NULL,
    file bigint NOT NULL,                         -- that brought it first, and its time
    pass_time bigint NOT NULL,
    fault bytea NOT NULL,
    kind text NOT NULL,                           -- a line's init or run, or the kind of a value
    stamp bytea NOT NULL,                         -- of a line
    value_id bigint NOT NULL,
    value bytea NOT NULL);                        -- a line's text, a number in decimal, or bytes
CREATE INDEX fault_device ON fault(device, id);

-- Files whose history was moved here, by their first runs, and the last of their runs.
CREATE TABLE moved(run uuid PRIMARY KEY, last bigint NOT NULL);

CREATE VIEW rollup_hour AS
    SELECT r.device, r.command, r.hour, e.series, e.ordinal, e.n, e.min, e.max, e.last
    FROM rollup r, unnest(r.series, r.ordinals, r.n, r.min, r.max, r.last)
         AS e(series, ordinal, n, min, max, last);

CREATE VIEW value_flat AS
    SELECT replace(c.run::text, '-', '') AS run, d.name AS device, c.time, o.text AS status,
           c.command, s.collector_text AS collector, s.section, s.key,
           coalesce(v.ordinal, 0) AS ordinal,
           CASE WHEN v.number IS NULL AND v.bytes IS NULL THEN 'gone' WHEN s.type = 1 THEN 'int'
                WHEN s.type = 2 THEN 'long' WHEN s.type = 3 THEN 'string' ELSE 'buffer' END AS type,
           v.number, v.bytes
    FROM device d
    JOIN collection c ON c.device = d.id
    JOIN outcome o ON o.id = c.outcome
    CROSS JOIN LATERAL unnest(c.series, c.ordinals, c.numbers, c.texts)
               AS v(series, ordinal, number, bytes)
    JOIN series s ON s.id = v.series
    WHERE d.name IS NOT NULL;
)";

// Who collects need not own the tables, so what makes and drops days runs as their owner.
constexpr const char *day_functions = R"(
CREATE FUNCTION day_name(day bigint) RETURNS text LANGUAGE sql IMMUTABLE AS
    $$ SELECT 'collection_' || to_char(date '1970-01-01' + day::integer, 'YYYYMMDD') $$;

CREATE FUNCTION make_day(day bigint) RETURNS void LANGUAGE plpgsql SECURITY DEFINER
SET search_path = dtfleet, pg_temp AS $$
BEGIN
    -- Who has waited here for another one finds its day in the table alone, not yet by its name.
    PERFORM pg_advisory_xact_lock(hashtext('dtfleet'), 1);
    IF EXISTS (SELECT 1 FROM pg_class WHERE relname = day_name(day)
               AND relnamespace = 'dtfleet'::regnamespace) THEN RETURN; END IF;
    EXECUTE format('CREATE TABLE %I (LIKE collection INCLUDING DEFAULTS INCLUDING STORAGE)',
                   day_name(day));
    EXECUTE format('ALTER TABLE collection ATTACH PARTITION %I FOR VALUES FROM (%s) TO (%s)',
                   day_name(day), day * 86400000000, (day + 1) * 86400000000);
END $$;

-- Runs that stay behind when their day is dropped.
CREATE TABLE day_kept(day bigint PRIMARY KEY, runs bigint NOT NULL);

-- Other than by DELETE, the space is there again at once.
CREATE FUNCTION drop_day(dropped bigint) RETURNS void LANGUAGE plpgsql SECURITY DEFINER
SET search_path = dtfleet, pg_temp SET lock_timeout = '1s' AS $$
DECLARE kept bigint;
BEGIN
    PERFORM pg_advisory_xact_lock(hashtext('dtfleet'), 1);
    CREATE TEMPORARY TABLE kept_run ON COMMIT DROP AS
        SELECT c.* FROM state s JOIN device d ON d.id = s.device AND d.name IS NOT NULL,
             LATERAL (SELECT * FROM collection WHERE device = s.device AND command = s.command
                      AND time >= dropped * 86400000000 AND time < (dropped + 1) * 86400000000
                      AND outcome = 0 AND NOT history ORDER BY time, id LIMIT 1) c
        WHERE s.full_day = dropped;
    EXECUTE format('DROP TABLE IF EXISTS %I', day_name(dropped));
    DELETE FROM day_kept WHERE day = dropped;
    IF EXISTS (SELECT 1 FROM kept_run) THEN
        PERFORM make_day(dropped);
        INSERT INTO collection SELECT * FROM kept_run;
        GET DIAGNOSTICS kept = ROW_COUNT;
        INSERT INTO day_kept VALUES (dropped, kept);
    END IF;
    DROP TABLE kept_run;
END $$;

CREATE VIEW day AS
    SELECT to_date(substr(c.relname, 12), 'YYYYMMDD') - date '1970-01-01' AS day,
           pg_total_relation_size(c.oid) AS bytes
    FROM pg_inherits i JOIN pg_class c ON c.oid = i.inhrelid
    WHERE i.inhparent = 'collection'::regclass;
)";

// Takes what is staged, once the row of the next id is held: who writes at the same time waits
// there, so what is checked stays true until the commit.
constexpr const char *store_function = R"(
CREATE FUNCTION must_be(changed bigint, wanted bigint) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    IF changed <> wanted THEN
        RAISE EXCEPTION 'another collector has stored runs of these devices'
            USING ERRCODE = '40001';
    END IF;
END $$;

-- The little that is staged is to be looked up in large tables, whatever is known of their sizes.
CREATE FUNCTION store_staged() RETURNS void LANGUAGE plpgsql
SET enable_hashjoin = off SET enable_mergejoin = off AS $$
DECLARE
    base bigint;
    staged bigint;
    changed bigint;
    made bigint;
BEGIN
    SELECT count(*) INTO staged FROM stage_run;
    UPDATE meta SET value = value + staged WHERE key = 'next_collection'
        RETURNING value - staged INTO base;

    -- Rows are locked in the order of their ids, as by those who renew leases.
    UPDATE device d SET
        identity_seen = coalesce(n.identity, d.identity_seen),
        identity_expected = coalesce(d.identity_expected, n.identity),
        address_seen = CASE WHEN n.address = '' THEN d.address_seen ELSE n.address END,
        last_try = CASE WHEN n.tells THEN n.last_try ELSE d.last_try END,
        last_ok = coalesce(n.last_ok, d.last_ok),
        failures = n.failures + CASE WHEN n.last_ok IS NULL THEN d.failures ELSE 0 END,
        last_outcome = CASE WHEN n.tells THEN n.outcome ELSE d.last_outcome END,
        last_reason = CASE WHEN n.tells THEN n.reason ELSE d.last_reason END,
        last_duration = CASE WHEN n.tells THEN n.duration ELSE d.last_duration END,
        due = CASE WHEN n.due = 0 THEN d.due ELSE n.due END,
        lease_until = CASE WHEN n.due = 0 OR n.keeps THEN d.lease_until ELSE 0 END,
        free_at = greatest(CASE WHEN n.due = 0 THEN d.due ELSE n.due END, d.paused_until,
                           CASE WHEN n.due = 0 OR n.keeps THEN d.lease_until ELSE 0 END)
    FROM (SELECT * FROM stage_device ORDER BY device) n
    WHERE d.id = n.device AND (n.epoch = 0 OR n.epoch = d.epoch);
    GET DIAGNOSTICS changed = ROW_COUNT;
    PERFORM dtfleet.must_be(changed, (SELECT count(*) FROM stage_device));

    INSERT INTO collection
        SELECT time, run, base + place, device, command, outcome, reason, identity, address,
               messages, bytes, resends, to_connect, to_opening, to_end, history, series, ordinals,
               numbers, texts FROM stage_run
        ON CONFLICT (time, run) DO NOTHING;
    GET DIAGNOSTICS changed = ROW_COUNT;
    PERFORM dtfleet.must_be(changed, staged);

    UPDATE state s SET serial = n.serial + 1, time = n.time, full_day = n.full_day,
        hour = n.hour, has_longs = n.has_longs, entries = n.entries FROM stage_state n
        WHERE s.device = n.device AND s.command = n.command AND s.serial = n.serial;
    GET DIAGNOSTICS changed = ROW_COUNT;
    INSERT INTO state
        SELECT device, command, 1, time, full_day, hour, has_longs, entries
        FROM stage_state WHERE serial = 0 ON CONFLICT (device, command) DO NOTHING;
    GET DIAGNOSTICS made = ROW_COUNT;
    PERFORM dtfleet.must_be(changed + made, (SELECT count(*) FROM stage_state));
    INSERT INTO rollup AS r
        SELECT device, command, hour, serial + 1, series, ordinals, n, min, max, last
        FROM stage_rollup
        ON CONFLICT (device, command, hour) DO UPDATE SET serial = excluded.serial,
            series = excluded.series, ordinals = excluded.ordinals, n = excluded.n,
            min = excluded.min, max = excluded.max, last = excluded.last
            WHERE r.serial = excluded.serial - 1;
    GET DIAGNOSTICS changed = ROW_COUNT;
    PERFORM dtfleet.must_be(changed, (SELECT count(*) FROM stage_rollup));
    INSERT INTO long_value SELECT device, command, series, ordinal, bytes FROM stage_long
        ON CONFLICT (device, command, series, ordinal) DO UPDATE SET bytes = excluded.bytes;
    INSERT INTO log SELECT device, series, seq, stamp, text, base + place, time, gap_before
        FROM stage_log;
    INSERT INTO log_tail SELECT device, series, command, first, count, hash FROM stage_tail
        ON CONFLICT (device, series, command) DO UPDATE SET first = excluded.first,
            count = excluded.count, hash = excluded.hash;

    DELETE FROM stage_run;
    DELETE FROM stage_device;
    DELETE FROM stage_state;
    DELETE FROM stage_long;
    DELETE FROM stage_rollup;
    DELETE FROM stage_log;
    DELETE FROM stage_tail;
END $$;
)";

constexpr const char *grants = R"(
DO $$
BEGIN
    IF EXISTS (SELECT 1 FROM pg_roles WHERE rolname = 'dtfleet_read') THEN
        GRANT USAGE ON SCHEMA dtfleet TO dtfleet_read;
        GRANT SELECT ON ALL TABLES IN SCHEMA dtfleet TO dtfleet_read;
    END IF;
    IF EXISTS (SELECT 1 FROM pg_roles WHERE rolname = 'dtfleet_collect') THEN
        GRANT USAGE ON SCHEMA dtfleet TO dtfleet_collect;
        GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA dtfleet TO dtfleet_collect;
        REVOKE INSERT, DELETE ON meta, inventory FROM dtfleet_collect;
        REVOKE INSERT, UPDATE, DELETE ON outcome, day, value_flat, rollup_hour FROM dtfleet_collect;
        GRANT EXECUTE ON FUNCTION make_day(bigint), drop_day(bigint), store_staged()
            TO dtfleet_collect;
    END IF;
END $$;
REVOKE EXECUTE ON FUNCTION make_day(bigint), drop_day(bigint), store_staged() FROM PUBLIC;
)";

constexpr const char *stage = R"(
SET temp_buffers = '32MB';
CREATE TEMPORARY TABLE stage_run(
    time bigint, run uuid, place bigint, device integer, command bigint, outcome smallint,
    reason text, identity integer, address text, messages bigint, bytes bigint, resends bigint,
    to_connect bigint, to_opening bigint, to_end bigint, history boolean, series integer[],
    ordinals integer[], numbers bigint[], texts bytea[]);
CREATE TEMPORARY TABLE stage_device(
    device integer, epoch bigint, identity integer, address text, tells boolean, last_try bigint,
    last_ok bigint, failures bigint, outcome smallint, reason text, duration bigint, due bigint,
    keeps boolean);
CREATE TEMPORARY TABLE stage_state(
    device integer, command bigint, serial bigint, time bigint, full_day bigint, hour bigint,
    has_longs boolean, entries bytea);
ALTER TABLE stage_state ALTER entries SET STORAGE EXTERNAL;
ALTER TABLE stage_state SET (toast_tuple_target = 8160);
CREATE TEMPORARY TABLE stage_long(
    device integer, command bigint, series integer, ordinal integer, bytes bytea);
CREATE TEMPORARY TABLE stage_rollup(
    device integer, command bigint, hour bigint, serial bigint, series integer[],
    ordinals integer[], n bigint[], min bigint[], max bigint[], last bigint[]);
CREATE TEMPORARY TABLE stage_log(
    device integer, series integer, seq bigint, stamp bytea, text bytea, place bigint,
    time bigint, gap_before boolean);
CREATE TEMPORARY TABLE stage_tail(
    device integer, series integer, command bigint, first bigint, count bigint, hash bigint);
)";

// 0: there are no tables.
int64_t version_of(Connection &connection) {
    const bool is_there = connection
                              .number("SELECT 1 FROM pg_tables WHERE schemaname = 'dtfleet' AND "
                                      "tablename = 'meta'")
                              .has_value();
    if (!is_there) return 0;
    const int64_t version =
        connection.number("SELECT value FROM dtfleet.meta WHERE key = 'schema_version'")
            .value_or(0);
    if (version > schema_version)
        throw Failure(Exit::broken,
                      fmt::format("the database: its version {} is newer than this program's {}",
                                  version, schema_version));
    return version;
}

void make_tables(Connection &connection) {
    connection.execute(tables);
    connection.execute(day_functions);
    connection.execute(store_function);
    for (size_t i = 0; i < outcomes; ++i)
        connection.query("INSERT INTO outcome VALUES ($1, $2)", static_cast<int64_t>(i),
                         std::string(text_of(static_cast<Outcome>(i))));
    connection.query("INSERT INTO meta VALUES ('schema_version', $1)", schema_version);
}

} // namespace

// Several may do so at once: the second finds the first one's tables.
Migrated migrate(Connection &connection) {
    if (connection.query("SELECT 1 WHERE getdatabaseencoding() = 'UTF8'").rows() == 0)
        throw Failure(Exit::usage, "the database: its encoding must be UTF8");
    Transaction transaction(connection, Transaction::Kind::write);
    connection.query("SELECT pg_advisory_xact_lock(hashtext('dtfleet'), 0)");
    const int64_t version = version_of(connection);
    if (version == 0) make_tables(connection);
    connection.execute(grants); // also to roles that were made since
    transaction.commit();
    return {version, schema_version};
}

void check_schema(Connection &connection) {
    const int64_t version = version_of(connection);
    if (version == schema_version) return;
    throw Failure(
        Exit::broken,
        version == 0 ? "the database: it has no tables of dtfleet; make them with `dtfleet migrate`"
                     : fmt::format("the database: its version {} is older than this program's {}; "
                                   "run `dtfleet migrate`",
                                   version, schema_version));
}

void make_stage(Connection &connection) { connection.execute(stage); }

void sweep_stage(Connection &connection) {
    connection.execute(
        "VACUUM (TRUNCATE off) stage_run, stage_device, stage_state, stage_long, stage_rollup, "
        "stage_log, stage_tail");
}

} // namespace dtfleet::postgres
