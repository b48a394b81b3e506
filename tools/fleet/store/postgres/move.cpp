#include "fleet/store/postgres/move.h"

#include "fleet/store/postgres/batch.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/schema.h"
#include "fleet/store/postgres/series_rows.h"
#include "fleet/store/postgres/text.h"
#include "fleet/store/sqlite/rows.h"
#include "fleet/store/sqlite/schema.h"
#include "host/failure.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <deque>

namespace dtfleet::postgres {
namespace {

using dtctl::Exit;
using dtctl::Failure;

constexpr size_t most_runs = 1000; // of a transaction,
constexpr size_t most_values = 100'000;

std::optional<int64_t> number_or_null(const sqlite::Statement &row, int column) {
    if (row.is_null(column)) return std::nullopt;
    return row.number(column);
}

} // namespace

Moved Move::all() {
    sqlite::each_row(file_.statement("SELECT run FROM collection ORDER BY id LIMIT 1"),
                     [&](const sqlite::Statement &row) { name_ = id_text(run_id(row.bytes(0))); });
    move_devices();
    move_series();
    if (!name_.empty()) move_runs();
    move_states();
    move_sums();
    move_logs();
    move_faults();
    compare();
    return moved_;
}

int64_t Move::device(int64_t id) const {
    const auto found = devices_.find(id);
    return found == devices_.end() ? 0 : found->second;
}

int64_t Move::series(int64_t id) const {
    const auto found = series_.find(id);
    return found == series_.end() ? 0 : found->second;
}

// ---- what runs refer to -------------------------------------------------------------------------

void Move::move_devices() {
    sqlite::Statement &all = file_.statement(
        "SELECT id, name, address, port, groups, interval, listed, identity_listed, "
        "identity_expected, identity_seen, address_seen, paused_until, last_try, last_ok, "
        "failures, "
        "last_outcome, last_reason, last_duration FROM device WHERE name IS NOT NULL");
    sqlite::each_row(all, [&](const sqlite::Statement &row) {
        const std::string name(row.bytes(1));
        connection_.query(
            "INSERT INTO device(name, address, port, groups, interval, listed, identity_listed, "
            "identity_expected, identity_seen, address_seen, paused_until, last_try, last_ok, "
            "failures, last_outcome, last_reason, last_duration, free_at) VALUES ($1, $2, $3, $4, "
            "$5, $6 <> 0, $7, $8, $9, $10, $11, $12, $13, $14, $15, $16, $17, $11) "
            "ON CONFLICT (name) DO UPDATE SET identity_seen = excluded.identity_seen, "
            "address_seen = excluded.address_seen, last_try = excluded.last_try, last_ok = "
            "excluded.last_ok, failures = excluded.failures, last_outcome = excluded.last_outcome, "
            "last_reason = excluded.last_reason, last_duration = excluded.last_duration "
            "WHERE device.last_try < excluded.last_try",
            name, shown(row.bytes(2)), row.number(3), shown(row.bytes(4)), row.number(5),
            row.number(6), number_or_null(row, 7), number_or_null(row, 8), number_or_null(row, 9),
            shown(row.bytes(10)), row.number(11), row.number(12), row.number(13), row.number(14),
            row.number(15), shown(row.bytes(16)), row.number(17));
        devices_[row.number(0)] =
            connection_.number("SELECT id FROM device WHERE name = $1", name).value_or(0);
    });
}

void Move::move_series() {
    const std::string series = std::string(select_series) + "ORDER BY id";
    std::vector<Series> all;
    sqlite::each_row(file_.statement(series.c_str()),
                     [&](const sqlite::Statement &row) { all.push_back(series_in(row)); });
    std::deque<SeriesMeaning> meanings;
    std::vector<SeriesRows::Wanted> wanted;
    for (const Series &one : all) {
        SeriesMeaning &meaning = meanings.emplace_back();
        meaning.name = one.name;
        meaning.unit = one.unit;
        meaning.is_signed = one.is_signed;
        wanted.push_back({one.collector, one.section, one.key, one.type, &meaning});
    }
    const auto found = series_rows_.find_or_make(wanted);
    std::vector<int64_t> logs;
    for (size_t i = 0; i < all.size(); ++i) {
        series_[all[i].id] = found[i].id;
        if (all[i].is_log) logs.push_back(found[i].id);
    }
    series_rows_.mark_logs(logs);
}

// ---- runs ---------------------------------------------------------------------------------------

// In the order of their ids, so that they come after each other here, too.
void Move::move_runs() {
    const int64_t end = file_.number("SELECT max(id) FROM collection");
    int64_t at =
        connection_.number("SELECT last FROM moved WHERE run = $1::uuid", name_).value_or(0);
    while (at < end) {
        at = move_some_runs(at);
        if (advance_) advance_(static_cast<uint64_t>(at), static_cast<uint64_t>(end));
    }
}

// Answers the id of the last one. Those of devices that are being forgotten are left out.
int64_t Move::move_some_runs(int64_t after) {
    const sqlite::Transaction reading(file_, sqlite::Transaction::Kind::read);
    std::vector<int64_t> ids, times;
    std::vector<std::string> runs;
    size_t values = 0;
    sqlite::Statement &find =
        file_.statement("SELECT id, time, run, count FROM collection WHERE id > ? ORDER BY id");
    find.with(after);
    while (ids.size() < most_runs && values < most_values && find.step()) {
        ids.push_back(find.number(0));
        times.push_back(find.number(1));
        runs.push_back(id_text(run_id(find.bytes(2))));
        values += static_cast<size_t>(find.number(3));
    }
    find.reset();
    const std::vector<bool> there = known_runs(connection_, times, runs);
    Rows rows(20);
    sqlite::Statement &run = file_.statement(
        "SELECT time, run, device, command, outcome, reason, identity, address, messages, bytes, "
        "resends, to_connect, to_opening, to_end, history, first, count FROM collection "
        "WHERE id = ?");
    const uint64_t before = moved_.runs;
    for (size_t i = 0; i < ids.size(); ++i) {
        const auto place = static_cast<int64_t>(moved_.runs - before);
        if (!there[i])
            sqlite::each_row(run.with(ids[i]),
                             [&](const sqlite::Statement &row) { stage_run(rows, place, row); });
    }
    Transaction writing(connection_, Transaction::Kind::write);
    if (!rows.is_empty()) {
        connection_.begin_copy("COPY stage_run FROM STDIN (FORMAT binary)");
        connection_.put(rows.data());
        connection_.end_copy();
    }
    connection_.query("INSERT INTO moved VALUES ($1::uuid, $2) ON CONFLICT (run) DO UPDATE SET "
                      "last = excluded.last",
                      name_, ids.back());
    writing.commit("SELECT store_staged(); COMMIT");
    return ids.back();
}

void Move::make_day(int64_t day) {
    if (!days_.insert(day).second) return;
    connection_.query("SELECT make_day($1) WHERE to_regclass(day_name($1)) IS NULL", day);
}

void Move::stage_run(Rows &rows, int64_t place, const sqlite::Statement &run) {
    const int64_t of = device(run.number(2));
    if (of == 0) return;
    make_day(day_of(run.number(0)));
    std::deque<std::string> texts;
    std::vector<Row> values;
    sqlite::Statement &find = file_.statement(
        "SELECT series, ordinal, value FROM value WHERE id >= ? AND id < ? ORDER BY id");
    sqlite::each_row(find.with(run.number(15), run.number(15) + run.number(16)),
                     [&](const sqlite::Statement &row) {
                         const StoredValue value = sqlite::stored_value(row, 2);
                         texts.push_back(value.bytes);
                         values.push_back({series(row.number(0)),
                                           static_cast<uint32_t>(row.number(1)), value.form,
                                           value.number, texts.back()});
                     });
    rows.row().int8(run.number(0)).uuid(run_id(run.bytes(1))).int8(place).int4(of);
    rows.int8(run.number(3)).int2(run.number(4)).bytes(shown(run.bytes(5)));
    run.is_null(6) ? rows.null() : rows.int4(run.number(6));
    rows.bytes(shown(run.bytes(7)));
    for (int column = 8; column <= 13; ++column) rows.int8(run.number(column));
    rows.truth(run.number(14) != 0).raw(columns_of(values));
    ++moved_.runs;
    moved_.values += values.size();
}

// ---- what stands beside the runs ----------------------------------------------------------------

// Unless a collector that works on the server knows better.
void Move::move_states() {
    sqlite::each_row(file_.statement("SELECT device, command, time, full_day, hour, entries FROM "
                                     "state"),
                     [&](const sqlite::Statement &row) {
                         if (const int64_t of = device(row.number(0)); of != 0) move_state(of, row);
                     });
}

// Values that are too long for a state stand in rows of the file, and beside the state here.
void Move::move_state(int64_t device, const sqlite::Statement &row) {
    const int64_t command = row.number(1);
    State state{row.number(2), row.number(3), row.number(4), {}};
    if (!unpack(row.bytes(5), state)) return;
    Transaction transaction(connection_, Transaction::Kind::write);
    for (Entry &entry : state.entries) {
        entry.series = series(entry.series);
        if (entry.form != Entry::Form::row) continue;
        std::string bytes;
        sqlite::each_row(file_.statement("SELECT value FROM value WHERE id = ?").with(entry.number),
                         [&](const sqlite::Statement &value) { bytes = value.bytes(0); });
        entry.number = 0;
        connection_.query("INSERT INTO long_value VALUES ($1, $2, $3, $4, $5) ON CONFLICT "
                          "(device, command, series, ordinal) DO UPDATE SET bytes = excluded.bytes",
                          device, command, entry.series, int64_t{entry.ordinal}, Bytes{bytes});
    }
    const bool is_new =
        connection_
            .query("INSERT INTO state AS s VALUES ($1, $2, 1, $3, $4, $5, $6 <> 0, $7) ON CONFLICT "
                   "(device, command) DO UPDATE SET serial = s.serial + 1, time = excluded.time, "
                   "full_day = excluded.full_day, hour = excluded.hour, has_longs = "
                   "excluded.has_longs, entries = excluded.entries WHERE s.time < excluded.time",
                   device, command, state.time, state.full_day, state.hour,
                   int64_t{has_longs(state)}, Bytes{pack(state)})
            .changed() != 0;
    if (is_new) transaction.commit();
}

void Move::move_sums() {
    sqlite::each_row(file_.statement("SELECT device, command, hour, entries FROM rollup"),
                     [&](const sqlite::Statement &row) {
                         const int64_t of = device(row.number(0));
                         const auto entries = nlohmann::json::parse(row.bytes(3), nullptr, false);
                         if (of == 0 || !entries.is_array()) return;
                         std::array<std::vector<int64_t>, 6> columns;
                         for (const auto &entry : entries) {
                             const auto numbers = entry.get<std::array<int64_t, 6>>();
                             for (size_t i = 0; i < numbers.size(); ++i)
                                 columns[i].push_back(i == 0 ? series(numbers[0]) : numbers[i]);
                         }
                         connection_.query(
                             "INSERT INTO rollup VALUES ($1, $2, $3, 1, $4, $5, $6, $7, $8, $9) "
                             "ON CONFLICT DO NOTHING",
                             of, row.number(1), row.number(2), columns[0], columns[1], columns[2],
                             columns[3], columns[4], columns[5]);
                     });
}

// Which run brought a line first is not known here by its number.
void Move::move_logs() {
    sqlite::each_row(file_.statement("SELECT device, series, seq, stamp, text, time, gap_before "
                                     "FROM log"),
                     [&](const sqlite::Statement &row) {
                         if (device(row.number(0)) == 0) return;
                         connection_.query("INSERT INTO log VALUES ($1, $2, $3, $4, $5, 0, $6, "
                                           "$7 <> 0) ON CONFLICT DO NOTHING",
                                           device(row.number(0)), series(row.number(1)),
                                           row.number(2), Bytes{row.bytes(3)}, Bytes{row.bytes(4)},
                                           row.number(5), row.number(6));
                     });
    sqlite::each_row(
        file_.statement("SELECT t.device, t.series, t.command, t.first, t.count, t.hash, "
                        "d.last_try FROM log_tail t JOIN device d ON d.id = t.device"),
        [&](const sqlite::Statement &row) {
            if (device(row.number(0)) == 0) return;
            connection_.query("INSERT INTO log_tail VALUES ($1, $2, $3, $4, $5, $6) ON CONFLICT "
                              "(device, series, command) DO UPDATE SET first = excluded.first, "
                              "count = excluded.count, hash = excluded.hash WHERE (SELECT last_try "
                              "FROM device WHERE id = $1) <= $7",
                              device(row.number(0)), series(row.number(1)), row.number(2),
                              row.number(3), row.number(4), row.number(5), row.number(6));
        });
}

// File by file: the rows that came with one are there when it is.
void Move::move_faults() {
    sqlite::each_row(
        file_.statement(
            "SELECT id, device, digest, pass_time, imported FROM fault_file ORDER BY id"),
        [&](const sqlite::Statement &file) {
            const int64_t of = device(file.number(1));
            if (of == 0) return;
            Transaction transaction(connection_, Transaction::Kind::write);
            const auto id = connection_.number(
                "INSERT INTO fault_file(device, digest, pass_time, imported) VALUES ($1, $2, $3, "
                "$4) ON CONFLICT DO NOTHING RETURNING id",
                of, Bytes{file.bytes(2)}, file.number(3), file.number(4));
            if (!id) return;
            sqlite::Statement &rows = file_.statement(
                "SELECT fault, kind, stamp, value_id, value FROM fault WHERE file = ? AND "
                "device = ? ORDER BY id");
            sqlite::each_row(
                rows.with(file.number(0), file.number(1)), [&](const sqlite::Statement &row) {
                    connection_.query("INSERT INTO fault(device, file, pass_time, fault, kind, "
                                      "stamp, value_id, value) VALUES ($1, $2, $3, $4, $5, $6, $7, "
                                      "$8)",
                                      of, *id, file.number(3), Bytes{row.bytes(0)}, row.bytes(1),
                                      Bytes{row.bytes(2)}, row.number(3), Bytes{row.bytes(4)});
                });
            transaction.commit();
        });
}

// ---- afterwards ---------------------------------------------------------------------------------

// By device and day: the server may have more, of its own collectors, and must not have less.
void Move::compare() {
    std::map<std::pair<int64_t, int64_t>, std::pair<int64_t, int64_t>> here;
    const Result rows = connection_.query(
        "SELECT device, time / 86400000000, count(*), sum(coalesce(cardinality(series), "
        "0))::bigint FROM collection WHERE device = ANY($1) GROUP BY 1, 2",
        [&] {
            std::vector<int64_t> ids;
            for (const auto &[there, id] : devices_) ids.push_back(id);
            return ids;
        }());
    for (int row = 0; row < rows.rows(); ++row)
        here[{rows.number(row, 0), rows.number(row, 1)}] = {rows.number(row, 2),
                                                            rows.number(row, 3)};
    sqlite::each_row(
        file_.statement("SELECT c.device, c.time / 86400000000, count(*), sum(c.count), d.name "
                        "FROM collection c JOIN device d ON d.id = c.device AND d.name IS NOT NULL "
                        "GROUP BY 1, 2"),
        [&](const sqlite::Statement &row) {
            const auto [runs, values] = here[{device(row.number(0)), row.number(1)}];
            if (runs >= row.number(2) && values >= row.number(3)) return;
            throw Failure(Exit::broken,
                          fmt::format("device {}, day {}: {} runs with {} values of {} with {} are "
                                      "on the server",
                                      row.bytes(4), row.number(1), runs, values, row.number(2),
                                      row.number(3)));
        });
}

Moved move_database(const std::string &file, const std::string &address, const Advance &advance) {
    sqlite::Database from(file, sqlite::Database::Access::read);
    sqlite::check_schema(from);
    Connection to(address);
    check_schema(to);
    make_stage(to);
    PostgresSeries series(to);
    return Move(from, to, series, advance).all();
}

} // namespace dtfleet::postgres
