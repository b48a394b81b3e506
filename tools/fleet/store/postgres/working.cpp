#include "fleet/store/postgres/working.h"

#include "fleet/store/number.h"

#include <algorithm>

namespace dtfleet::postgres {

bool has_longs(const State &state) {
    return std::any_of(state.entries.begin(), state.entries.end(),
                       [](const Entry &entry) { return entry.form == Entry::Form::row; });
}

// ---- states -------------------------------------------------------------------------------------

void States::read(Connection &connection, const std::vector<int64_t> &devices) {
    rows_ = connection.query("SELECT device, command, serial, time, full_day, hour, has_longs, "
                             "entries FROM state WHERE device = ANY($1)",
                             devices);
    std::vector<int64_t> with_longs;
    for (int row = 0; row < rows_->rows(); ++row) {
        const int64_t device = rows_->number(row, 0);
        places_[{device, static_cast<uint32_t>(rows_->number(row, 1))}] = row;
        if (rows_->number(row, 6) != 0) with_longs.push_back(device);
    }
    if (!with_longs.empty()) read_longs(connection, with_longs);
}

void States::read_longs(Connection &connection, const std::vector<int64_t> &devices) {
    const Result longs = connection.query(
        "SELECT device, command, series, ordinal, bytes FROM long_value WHERE device = ANY($1)",
        devices);
    for (int row = 0; row < longs.rows(); ++row)
        longs_[{longs.number(row, 0), static_cast<uint32_t>(longs.number(row, 1))}]
              [{longs.number(row, 2), static_cast<uint32_t>(longs.number(row, 3))}] =
                  longs.bytes(row, 4);
}

std::optional<int64_t> States::hour(const Of &of) const {
    const auto place = places_.find(of);
    if (place == places_.end()) return std::nullopt;
    return rows_->number(place->second, 5);
}

// A state that cannot be read is none: then every value is new.
States::One States::take(const Of &of) const {
    One one;
    const auto place = places_.find(of);
    if (place == places_.end()) return one;
    const int row = place->second;
    one.serial = rows_->number(row, 2);
    one.state = {rows_->number(row, 3), rows_->number(row, 4), rows_->number(row, 5), {}};
    one.is_known = unpack(rows_->bytes(row, 7), one.state);
    if (!one.is_known) one.state = {};
    if (const auto longs = longs_.find(of); longs != longs_.end()) one.longs = longs->second;
    return one;
}

void States::stage(const Of &of, const One &one) {
    if (!one.is_changed) return;
    const auto &[device, command] = of;
    staged_.row().int4(device).int8(command).int8(one.serial).int8(one.state.time);
    staged_.int8(one.state.full_day).int8(one.state.hour);
    staged_.truth(has_longs(one.state)).bytes(pack(one.state));
    for (const Place &value : one.new_longs)
        staged_longs_.row()
            .int4(device)
            .int8(command)
            .int4(value.first)
            .int4(value.second)
            .bytes(one.longs.at(value));
}

// ---- sums ---------------------------------------------------------------------------------------

namespace {

std::map<Place, Sum> sums_in(const Result &rows, int row) {
    const auto series = rows.numbers(row, 4), ordinals = rows.numbers(row, 5);
    const auto n = rows.numbers(row, 6), min = rows.numbers(row, 7);
    const auto max = rows.numbers(row, 8), last = rows.numbers(row, 9);
    std::map<Place, Sum> sums;
    for (size_t i = 0; i < series.size(); ++i) {
        const auto pattern = [&](const auto &column) {
            return i < column.size() ? static_cast<uint64_t>(column[i].value_or(0)) : 0;
        };
        sums[{series[i].value_or(0), static_cast<uint32_t>(pattern(ordinals))}] = {
            pattern(n), pattern(min), pattern(max), pattern(last)};
    }
    return sums;
}

template <typename NumberOf>
void put_column(Rows &rows, Type type, const std::map<Place, Sum> &sums, NumberOf number_of) {
    auto at = sums.begin();
    rows.array(type, sums.size(), false, [&](size_t) {
        const auto number = static_cast<int64_t>(number_of(*at++));
        type == Type::int4 ? rows.int4(number) : rows.int8(number);
    });
}

} // namespace

void Rollups::read(const std::vector<Hour> &hours) {
    std::vector<int64_t> devices, commands, numbers;
    for (const auto &[device, command, hour] : hours) {
        all_[{device, command, hour}] = {};
        devices.push_back(device);
        commands.push_back(command);
        numbers.push_back(hour);
    }
    if (hours.empty()) return;
    const Result rows = connection_.query(
        "SELECT device, command, hour, serial, series, ordinals, n, min, max, last FROM rollup "
        "WHERE (device, command, hour) IN (SELECT * FROM unnest($1, $2, $3))",
        devices, commands, numbers);
    for (int row = 0; row < rows.rows(); ++row)
        all_[{rows.number(row, 0), static_cast<uint32_t>(rows.number(row, 1)),
              rows.number(row, 2)}] = {rows.number(row, 3), false, sums_in(rows, row)};
}

Rollups::One &Rollups::at(const Hour &hour) {
    const auto found = all_.find(hour);
    if (found != all_.end()) return found->second;
    read({hour});
    return all_[hour];
}

void Rollups::join(int64_t series, Sum &sum, const Sum &later) {
    const SeriesTable::Facts &facts = series_.facts_of(series);
    if (is_less(later.min, sum.min, facts.type, facts.is_signed)) sum.min = later.min;
    if (is_less(sum.max, later.max, facts.type, facts.is_signed)) sum.max = later.max;
    sum.last = later.last;
    sum.n += later.n;
}

void Rollups::close(int64_t device, uint32_t command, State &state) {
    const auto has_sum = [](const Entry &e) { return e.sum.n != 0; };
    if (std::any_of(state.entries.begin(), state.entries.end(), has_sum)) {
        One &one = at({device, command, state.hour});
        one.is_changed = true;
        for (const Entry &entry : state.entries) {
            if (!has_sum(entry)) continue;
            const auto [there, is_new] =
                one.sums.try_emplace({entry.series, entry.ordinal}, entry.sum);
            if (!is_new) join(entry.series, there->second, entry.sum);
        }
    }
    std::erase_if(state.entries, [](const Entry &e) { return e.form == Entry::Form::gone; });
    for (Entry &entry : state.entries) entry.sum = {};
}

void Rollups::stage(Rows &rows) const {
    for (const auto &[place, one] : all_) {
        if (!one.is_changed) continue;
        const auto &[device, command, hour] = place;
        rows.row().int4(device).int8(command).int8(hour).int8(one.serial);
        put_column(rows, Type::int4, one.sums, [](const auto &sum) { return sum.first.first; });
        put_column(rows, Type::int4, one.sums, [](const auto &sum) { return sum.first.second; });
        put_column(rows, Type::int8, one.sums, [](const auto &sum) { return sum.second.n; });
        put_column(rows, Type::int8, one.sums, [](const auto &sum) { return sum.second.min; });
        put_column(rows, Type::int8, one.sums, [](const auto &sum) { return sum.second.max; });
        put_column(rows, Type::int8, one.sums, [](const auto &sum) { return sum.second.last; });
    }
}

// ---- logs ---------------------------------------------------------------------------------------

void LogBook::read(const std::vector<int64_t> &devices) {
    const Result tails = connection_.query(
        "SELECT t.device, t.series, t.command, t.first, t.count, t.hash, "
        "(SELECT max(seq) FROM log l WHERE l.device = t.device AND l.series = t.series) "
        "FROM log_tail t WHERE t.device = ANY($1)",
        devices);
    for (int row = 0; row < tails.rows(); ++row) {
        One &one = all_[{tails.number(row, 0), tails.number(row, 1)}];
        one.end = tails.number(row, 6);
        one.tails[static_cast<uint32_t>(tails.number(row, 2))] = {
            tails.number(row, 3), tails.number(row, 4), tails.number(row, 5), false};
    }
}

// As they stand in the database, and behind them those of this batch.
Texts LogBook::last_lines(int64_t device, int64_t series, const One &one, size_t count) {
    Texts lines;
    const int64_t stored_end = one.fresh.empty() ? one.end : one.fresh.front().seq - 1;
    const Result rows = connection_.query(
        "SELECT stamp, text FROM log WHERE device = $1 AND series = $2 AND seq > $3 ORDER BY seq",
        device, series, stored_end - static_cast<int64_t>(count));
    lines.reserve(static_cast<size_t>(rows.rows()) + one.fresh.size());
    for (int row = 0; row < rows.rows(); ++row)
        lines.emplace_back(rows.bytes(row, 0), rows.bytes(row, 1));
    for (const Fresh &line : one.fresh) lines.emplace_back(line.stamp, line.text);
    if (lines.size() > count)
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count));
    return lines;
}

// The device may have sent exactly this before, and nothing else since. Texts are not compared
// then: a log that grows is read back, one that stands still need not be.
void LogBook::take(const RunRecord &run, int64_t device, int64_t place,
                   const Arrivals::Log &arrived) {
    const std::vector<Line> lines = lines_of(arrived.strings);
    const auto hash = static_cast<int64_t>(hash_of(lines));
    const auto count = static_cast<int64_t>(lines.size());
    One &one = all_[{device, arrived.series()}];
    Tail &tail = one.tails[run.command];
    if (tail.count == count && tail.hash == hash) return;
    const Growth growth =
        growth_of(last_lines(device, arrived.series(), one, lines.size()), one.end, lines);
    tail = {growth.first, count, hash, true};
    for (size_t i = growth.known; i < lines.size(); ++i)
        one.fresh.push_back({std::string(lines[i].stamp), std::string(lines[i].text), ++one.end,
                             place, run.time, i == 0 && growth.has_gap});
}

void LogBook::stage(Rows &lines, Rows &tails) const {
    for (const auto &[place, one] : all_) {
        const auto &[device, series] = place;
        for (const Fresh &line : one.fresh) {
            lines.row().int4(device).int4(series).int8(line.seq).bytes(line.stamp);
            lines.bytes(line.text).int8(line.place).int8(line.time).truth(line.gap_before);
        }
        for (const auto &[command, tail] : one.tails) {
            if (!tail.is_changed) continue;
            tails.row().int4(device).int4(series).int8(command);
            tails.int8(tail.first).int8(tail.count).int8(tail.hash);
        }
    }
}

} // namespace dtfleet::postgres
