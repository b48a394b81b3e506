#include "fleet/store/sqlite/run_writer.h"

#include "fleet/store/sqlite/devices.h"
#include "fleet/store/sqlite/log_table.h"
#include "fleet/store/sqlite/rollup.h"

namespace dtfleet::sqlite {
namespace {

// A device that brings other keys each time must not make its state grow for a whole hour.
constexpr size_t most_entries = 50'000;

Bytes bytes_of(const RunId &id) {
    return {std::string_view(reinterpret_cast<const char *>(id.data()), id.size())};
}

// SQLite spends more on a statement's beginning and end than on its rows: together these take two
// thirds of the time.
constexpr size_t rows_at_once = 25;

std::string insert_values(size_t rows) {
    std::string sql = "INSERT INTO value VALUES(?, ?, ?, ?)";
    for (; rows > 1; --rows) sql += ", (?, ?, ?, ?)";
    return sql;
}

void bind_value(Statement &statement, int at, const Row &row) {
    switch (row.form) {
    case StoredValue::Form::number:
        return statement.bind(at, static_cast<int64_t>(row.number));
    case StoredValue::Form::bytes:
        return statement.bind(at, Bytes{row.bytes});
    case StoredValue::Form::gone:
        return statement.bind_null(at);
    }
}

// As many rows as the statement has places for, with the ids from this one.
void insert(Statement &statement, int64_t id, std::span<const Row> rows) {
    int at = 0;
    for (const Row &row : rows) {
        statement.bind(++at, id++);
        statement.bind(++at, row.series);
        statement.bind(++at, int64_t{row.ordinal});
        bind_value(statement, ++at, row);
    }
    statement.run_bound();
}

// The sums of another hour are over.
void go_to_hour(Database &database, int64_t device, uint32_t command, int64_t hour, State &state) {
    if (hour != state.hour || state.entries.size() > most_entries)
        close_hour(database, device, command, state);
    state.hour = hour;
}

} // namespace

void RunWriter::begin() {
    series_.begin_batch();
    next_collection_ = database_.number("SELECT value FROM meta WHERE key = 'next_collection'");
    next_value_ = database_.number("SELECT value FROM meta WHERE key = 'next_value'");
}

void RunWriter::end() {
    Statement &update = database_.statement("UPDATE meta SET value = ? WHERE key = ?");
    update.run(next_collection_, std::string_view("next_collection"));
    update.run(next_value_, std::string_view("next_value"));
}

void RunWriter::write(const RunRecord &run) {
    if (is_there(run)) return;
    const int64_t device = device_id(database_, run.device);
    Arrivals arrivals(run, series_);
    series_.resolve();
    State state;
    const bool is_known = read_state(device, run.command, state);
    const bool is_history = run.imported && is_known && run.time < state.time;
    size_t count = 0;
    if (is_history)
        count = write_history(run, device, arrivals);
    else if (!arrivals.is_empty() || is_whole(run.outcome))
        count = write_values(run, device, arrivals, std::move(state));
    if (!is_history) write_logs(run, device, arrivals);
    if (!is_history) note_run(database_, device, run);
    insert_collection(run, device, count, is_history);
}

bool RunWriter::is_there(const RunRecord &run) {
    Statement &find = database_.statement("SELECT 1 FROM collection WHERE run = ?");
    find.with(bytes_of(run.id));
    const bool there = find.step();
    find.reset();
    return there;
}

// ---- values -------------------------------------------------------------------------------------

// A state that cannot be read is none: then every value is new.
bool RunWriter::read_state(int64_t device, uint32_t command, State &state) {
    Statement &find = database_.statement(
        "SELECT time, full_day, hour, entries FROM state WHERE device = ? AND command = ?");
    find.with(device, command);
    bool is_known = find.step();
    if (is_known) {
        state = {find.number(0), find.number(1), find.number(2), {}};
        is_known = unpack(find.bytes(3), state);
    }
    find.reset();
    if (!is_known) state = {};
    return is_known;
}

void RunWriter::save_state(int64_t device, uint32_t command, const State &state) {
    const std::string entries = pack(state);
    database_
        .statement("INSERT INTO state(device, command, time, full_day, hour, entries) "
                   "VALUES(?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(device, command) DO UPDATE SET "
                   "time = ?3, full_day = ?4, hour = ?5, entries = ?6")
        .run(device, command, state.time, state.full_day, state.hour, Bytes{entries});
}

bool RunWriter::has_value(int64_t row, std::string_view bytes) {
    Statement &find = database_.statement("SELECT value FROM value WHERE id = ?");
    find.with(row);
    const bool same = find.step() && find.bytes(0) == bytes;
    find.reset();
    return same;
}

size_t RunWriter::write_values(const RunRecord &run, int64_t device, Arrivals &arrivals,
                               State state) {
    go_to_hour(database_, device, run.command, hour_of(run.time), state);
    const bool whole = is_whole(run.outcome);
    const bool is_full = whole && state.full_day != day_of(run.time);
    if (is_full) state.full_day = day_of(run.time);
    const auto same_row = [this](int64_t row, std::string_view bytes) {
        return has_value(row, bytes);
    };
    Comparison comparison(std::move(state),
                          {run.time, whole, run.keeps_all || is_full, next_value_}, same_row);
    arrivals.give(comparison);
    comparison.finish(
        [&](int64_t missing, uint32_t ordinal) { return arrivals.has_come(missing, ordinal); });
    insert_rows(comparison.rows());
    save_state(device, run.command, comparison.state());
    return comparison.rows().size();
}

// Of a time before what is known: all of it is stored, and nothing held against it.
size_t RunWriter::write_history(const RunRecord &run, int64_t device, Arrivals &arrivals) {
    State nothing;
    nothing.hour = hour_of(run.time);
    Comparison comparison(std::move(nothing), {run.time, false, true, next_value_}, {});
    arrivals.give(comparison);
    comparison.finish({});
    insert_rows(comparison.rows());
    close_hour(database_, device, run.command, comparison.state());
    return comparison.rows().size();
}

void RunWriter::insert_rows(std::span<const Row> rows) {
    static const std::string insert_many = insert_values(rows_at_once);
    int64_t id = next_value_;
    for (; rows.size() >= rows_at_once; rows = rows.subspan(rows_at_once)) {
        insert(database_.statement(insert_many.c_str()), id, rows.first(rows_at_once));
        id += rows_at_once;
    }
    Statement &insert_one = database_.statement("INSERT INTO value VALUES(?, ?, ?, ?)");
    for (; !rows.empty(); rows = rows.subspan(1)) insert(insert_one, id++, rows.first(1));
}

// ---- the rest of a run --------------------------------------------------------------------------

void RunWriter::write_logs(const RunRecord &run, int64_t device, const Arrivals &arrivals) {
    for (const Arrivals::Log &log : arrivals.logs())
        store_log(database_, {device, log.series(), run.command, next_collection_, run.time,
                              lines_of(log.strings)});
}

void RunWriter::insert_collection(const RunRecord &run, int64_t device, size_t count,
                                  bool is_history) {
    Statement &insert = database_.statement(
        "INSERT INTO collection(id, run, device, time, command, outcome, reason, address, "
        "messages, bytes, resends, to_connect, to_opening, to_end, first, count, history, "
        "identity) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.with(next_collection_, bytes_of(run.id), device, run.time, run.command,
                static_cast<int>(run.outcome), std::string_view(run.reason),
                std::string_view(run.address), run.messages, run.bytes, run.resends, run.to_connect,
                run.to_opening, run.to_end, next_value_, count, is_history, nullptr);
    if (run.identity) insert.bind(18, int64_t{*run.identity});
    insert.step();
    insert.reset();
    ++next_collection_;
    next_value_ += static_cast<int64_t>(count);
}

} // namespace dtfleet::sqlite
