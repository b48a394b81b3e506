#include "fleet/store/postgres/batch.h"

#include "fleet/store/postgres/text.h"

#include <algorithm>
#include <set>

namespace dtfleet::postgres {
namespace {

using Form = StoredValue::Form;

// A device that brings other keys each time must not make its state grow for a whole hour.
constexpr size_t most_entries = 50'000;

constexpr const char *find_by_name =
    "SELECT name, id, epoch, last_try FROM device WHERE name = ANY($1)";

// In a comparison, numbers of rows from here on are of the run itself.
constexpr int64_t first_row = int64_t{1} << 62;

} // namespace

std::string columns_of(const std::vector<Row> &rows) {
    Rows out(0);
    if (rows.empty()) {
        out.null().null().null().null();
        return out.data();
    }
    const auto any = [&](auto is_it) { return std::any_of(rows.begin(), rows.end(), is_it); };
    const bool has_ordinals = any([](const Row &row) { return row.ordinal != 0; });
    const bool has_numbers = any([](const Row &row) { return row.form == Form::number; });
    const bool has_texts = any([](const Row &row) { return row.form == Form::bytes; });
    out.array(Type::int4, rows.size(), false, [&](size_t i) { out.int4(rows[i].series); });
    const auto column = [&](bool has_any, Type type, bool has_nulls, auto write) {
        has_any ? out.array(type, rows.size(), has_nulls, write) : out.null();
    };
    column(has_ordinals, Type::int4, false, [&](size_t i) { out.int4(rows[i].ordinal); });
    column(has_numbers, Type::int8, true, [&](size_t i) {
        rows[i].form == Form::number ? out.int8(static_cast<int64_t>(rows[i].number)) : out.null();
    });
    column(has_texts, Type::bytea, true,
           [&](size_t i) { rows[i].form == Form::bytes ? out.bytes(rows[i].bytes) : out.null(); });
    return out.data();
}

std::vector<bool> known_runs(Connection &connection, const std::vector<int64_t> &times,
                             const std::vector<std::string> &ids) {
    const Result there =
        connection.query("SELECT n FROM unnest($1, $2) WITH ORDINALITY AS r(t, i, n) WHERE EXISTS "
                         "(SELECT 1 FROM collection WHERE time = t AND run = i::uuid)",
                         times, ids);
    std::vector<bool> known(ids.size());
    for (int row = 0; row < there.rows(); ++row)
        known[static_cast<size_t>(there.number(row, 0)) - 1] = true;
    return known;
}

void Batch::store() {
    leave_out_known();
    if (new_runs_.empty()) return;
    find_devices();
    begin_items();
    read();
    compute();
    commit();
}

// ---- what is there already ----------------------------------------------------------------------

// Also one that is in this batch twice.
void Batch::leave_out_known() {
    std::vector<bool> known(runs_.size());
    if (looks_for_runs_) {
        std::vector<int64_t> times;
        std::vector<std::string> ids;
        for (const RunRecord *run : runs_) {
            times.push_back(run->time);
            ids.push_back(id_text(run->id));
        }
        known = known_runs(connection_, times, ids);
    }
    std::set<std::pair<Microseconds, RunId>> seen;
    for (size_t i = 0; i < runs_.size(); ++i)
        if (!known[i] && seen.insert({runs_[i]->time, runs_[i]->id}).second)
            new_runs_.push_back(runs_[i]);
}

void Batch::find_devices() {
    std::vector<std::string> names;
    for (const RunRecord *run : new_runs_)
        if (devices_.try_emplace(run->device).second) names.push_back(run->device);
    take_ids(connection_.query(find_by_name, names));
    std::erase_if(names, [&](const std::string &name) { return devices_[name].id != 0; });
    if (names.empty()) return;
    connection_.query("INSERT INTO device(name) SELECT * FROM unnest($1) ON CONFLICT DO NOTHING",
                      names);
    take_ids(connection_.query(find_by_name, names));
}

void Batch::take_ids(const Result &devices) {
    for (int row = 0; row < devices.rows(); ++row) {
        Known &known = devices_[std::string(devices.bytes(row, 0))];
        known.id = devices.number(row, 1);
        known.epoch = devices.number(row, 2);
        known.last_try = devices.number(row, 3);
    }
}

void Batch::begin_items() {
    series_.begin_batch();
    items_.reserve(new_runs_.size());
    for (const RunRecord *run : new_runs_)
        items_.push_back({run, &devices_[run->device], static_cast<int64_t>(items_.size()),
                          Arrivals(*run, series_)});
    series_.resolve();
}

void Batch::read() {
    std::vector<int64_t> ids, with_logs;
    for (const auto &[name, device] : devices_) ids.push_back(device.id);
    states_.read(connection_, ids);
    std::set<Rollups::Hour> hours;
    for (const Item &item : items_) {
        const int64_t id = item.device->id;
        const auto hour = states_.hour(item.of());
        if (hour && *hour != hour_of(item.run->time)) hours.insert({id, item.run->command, *hour});
        if (!item.arrivals.logs().empty()) with_logs.push_back(id);
    }
    rollups_.read({hours.begin(), hours.end()});
    if (!with_logs.empty()) logs_.read(with_logs);
}

// ---- one run ------------------------------------------------------------------------------------

// It is not held against what is known: imported behind its time, or brought by a collector whose
// lease another one has by now.
bool Batch::is_history(const Item &item, const States::One &one) const {
    const RunRecord &run = *item.run;
    if (run.lease.epoch != 0 && run.lease.epoch != item.device->epoch) return true;
    return run.imported && one.is_known && run.time < one.state.time;
}

// Device after device, each one's runs in their order.
void Batch::compute() {
    std::map<States::Of, std::vector<Item *>> by_state;
    for (Item &item : items_) by_state[item.of()].push_back(&item);
    for (const auto &[of, items] : by_state) {
        States::One one = states_.take(of);
        for (Item *item : items) compute(*item, one);
        states_.stage(of, one);
    }
}

void Batch::compute(Item &item, States::One &one) {
    const RunRecord &run = *item.run;
    const bool history = is_history(item, one);
    std::string values;
    if (history)
        values = list_history(item);
    else if (!item.arrivals.is_empty() || is_whole(run.outcome))
        values = compare(item, one);
    else
        values = columns_of({});
    if (!history) {
        for (const Arrivals::Log &log : item.arrivals.logs())
            logs_.take(run, item.device->id, item.place, log);
        note(run, *item.device);
    }
    put_run(item, history, values);
}

std::string Batch::compare(Item &item, States::One &one) {
    const RunRecord &run = *item.run;
    State &state = one.state;
    const int64_t hour = hour_of(run.time);
    if (hour != state.hour || state.entries.size() > most_entries)
        rollups_.close(item.device->id, run.command, state);
    state.hour = hour;
    const bool whole = is_whole(run.outcome);
    const bool is_full = whole && state.full_day != day_of(run.time);
    if (is_full) state.full_day = day_of(run.time);
    std::vector<const std::string *> longs; // those before, by their places in the state
    for (Entry &entry : state.entries) {
        if (entry.form != Entry::Form::row) continue;
        entry.number = longs.size();
        longs.push_back(&one.longs[{entry.series, entry.ordinal}]);
    }
    const auto is_same = [&](int64_t row, std::string_view bytes) {
        return *longs[static_cast<size_t>(row)] == bytes;
    };
    Comparison comparison(std::move(state), {run.time, whole, run.keeps_all || is_full, first_row},
                          is_same);
    item.arrivals.give(comparison);
    comparison.finish([&](int64_t missing, uint32_t ordinal) {
        return item.arrivals.has_come(missing, ordinal);
    });
    state = std::move(comparison.state());
    for (Entry &entry : state.entries) {
        if (entry.form != Entry::Form::row) continue;
        const int64_t row = static_cast<int64_t>(entry.number) - first_row;
        entry.number = 0;
        if (row < 0) continue;
        const Place place{entry.series, entry.ordinal};
        one.longs[place] = comparison.rows()[static_cast<size_t>(row)].bytes;
        one.new_longs.insert(place);
    }
    one.is_known = one.is_changed = true;
    return columns_of(comparison.rows());
}

// All of it is stored, and nothing held against it.
std::string Batch::list_history(const Item &item) {
    const RunRecord &run = *item.run;
    State nothing;
    nothing.hour = hour_of(run.time);
    Comparison comparison(std::move(nothing), {run.time, false, true, first_row}, {});
    item.arrivals.give(comparison);
    comparison.finish({});
    rollups_.close(item.device->id, run.command, comparison.state());
    return columns_of(comparison.rows());
}

void Batch::put_run(const Item &item, bool is_history, const std::string &values) {
    const RunRecord &run = *item.run;
    rows_.row().int8(run.time).uuid(run.id).int8(item.place).int4(item.device->id);
    rows_.int8(run.command).int2(static_cast<int64_t>(run.outcome)).bytes(shown(run.reason));
    run.identity ? rows_.int4(*run.identity) : rows_.null();
    rows_.bytes(shown(run.address)).int8(run.messages).int8(static_cast<int64_t>(run.bytes));
    rows_.int8(run.resends).int8(run.to_connect).int8(run.to_opening).int8(run.to_end);
    rows_.truth(is_history).raw(values);
}

// A run that this service cut off says nothing of the device.
void Batch::note(const RunRecord &run, Known &device) {
    if (run.identity) device.identity = run.identity;
    if (!run.address.empty()) device.address = run.address;
    if (run.lease.epoch != 0) device.lease = run.lease;
    if (run.kind == Kind::selftest || run.outcome == Outcome::stopped) return;
    if (run.imported && device.last_try >= run.time) return;
    device.last = &run;
    device.last_try = run.time;
    if (is_whole(run.outcome)) {
        device.last_ok = run.time;
        device.failures = 0;
    } else {
        ++device.failures;
    }
}

void Batch::stage_devices(Rows &rows) const {
    for (const auto &[name, device] : devices_) {
        const bool tells = device.last != nullptr;
        rows.row().int4(device.id).int8(device.lease.epoch);
        device.identity ? rows.int4(*device.identity) : rows.null();
        rows.bytes(shown(device.address)).truth(tells).int8(device.last_try);
        device.last_ok ? rows.int8(*device.last_ok) : rows.null();
        rows.int8(device.failures);
        const RunRecord nothing;
        const RunRecord &last = tells ? *device.last : nothing;
        rows.int2(static_cast<int64_t>(last.outcome)).bytes(shown(last.reason));
        rows.int8(int64_t{last.to_connect} + last.to_opening + last.to_end);
        rows.int8(device.lease.due).truth(device.lease.keeps);
    }
}

// ---- into the database --------------------------------------------------------------------------

void Batch::make_days() {
    std::set<int64_t> days;
    for (const Item &item : items_) days.insert(day_of(item.run->time));
    const Result missing =
        connection_.query("SELECT d FROM unnest($1) d WHERE to_regclass(day_name(d)) IS NULL",
                          std::vector<int64_t>(days.begin(), days.end()));
    for (int row = 0; row < missing.rows(); ++row)
        connection_.query("SELECT make_day($1)", missing.number(row, 0));
}

void Batch::copy(const char *sql, const Rows &rows) {
    if (rows.is_empty()) return;
    connection_.begin_copy(sql);
    connection_.put(rows.data());
    staged_bytes_ += rows.data().size();
    connection_.end_copy();
}

// No row that others may want is locked until everything is on the server; from there to the end
// of the transaction it waits for nothing that this side does.
void Batch::commit() {
    make_days();
    Rows devices(13), rollups(10), lines(8), tails(6);
    stage_devices(devices);
    rollups_.stage(rollups);
    logs_.stage(lines, tails);
    Transaction transaction(connection_, Transaction::Kind::write);
    copy("COPY stage_run FROM STDIN (FORMAT binary)", rows_);
    copy("COPY stage_device FROM STDIN (FORMAT binary)", devices);
    copy("COPY stage_state FROM STDIN (FORMAT binary)", states_.states());
    copy("COPY stage_long FROM STDIN (FORMAT binary)", states_.longs());
    copy("COPY stage_rollup FROM STDIN (FORMAT binary)", rollups);
    copy("COPY stage_log FROM STDIN (FORMAT binary)", lines);
    copy("COPY stage_tail FROM STDIN (FORMAT binary)", tails);
    transaction.commit("SELECT store_staged(); COMMIT");
}

} // namespace dtfleet::postgres
