#include "fleet/store/sqlite/fault_table.h"

#include "fleet/store/logs.h"
#include "fleet/store/sqlite/devices.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <span>

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
    std::vector<FaultRow> rows;
    Statement &find = database.statement("SELECT fault, kind, stamp, value_id, value FROM fault "
                                         "WHERE device = ? ORDER BY pass_time, id");
    find.with(device);
    while (find.step())
        rows.push_back({0, 0, std::string(find.bytes(0)), std::string(find.bytes(1)),
                        std::string(find.bytes(2)), static_cast<uint32_t>(find.number(3)),
                        std::string(find.bytes(4))});
    find.reset();
    return rows;
}

// What a device appends to and drops the oldest of: a fault's log, or the values of all faults.
struct Sequence {
    std::deque<std::string> places; // of values; lines refer to them
    std::vector<Line> lines;
    std::vector<size_t> rows; // that these lines were made of
};
using Sequences = std::map<std::string, Sequence>;

// Refers to the rows.
Sequences sequences_of(std::span<const FaultRow> rows) {
    Sequences sequences;
    for (size_t i = 0; i < rows.size(); ++i) {
        const FaultRow &row = rows[i];
        const bool is_line = row.kind == "init" || row.kind == "run";
        Sequence &sequence = sequences[is_line ? row.kind + ' ' + row.fault : ""];
        if (!is_line)
            sequence.places.push_back(fmt::format("{} {} {}", row.kind, row.value_id, row.fault));
        sequence.lines.push_back(
            {is_line ? std::string_view(row.stamp) : sequence.places.back(), row.value});
        sequence.rows.push_back(i);
    }
    return sequences;
}

// Which of a newer file's rows are stored: those that what is stored ends with.
std::vector<bool> known_of_newer(const Sequences &stored, const Sequences &fresh, size_t rows) {
    std::vector<bool> known(rows);
    for (const auto &[name, sequence] : fresh) {
        const auto before = stored.find(name);
        if (before == stored.end()) continue;
        const size_t common = overlap(before->second.lines, sequence.lines);
        for (size_t i = 0; i < common; ++i) known[sequence.rows[i]] = true;
    }
    return known;
}

// Which of an older file's rows are stored, wherever.
std::vector<bool> known_of_older(const Sequences &stored, const Sequences &fresh, size_t rows) {
    std::vector<bool> known(rows);
    for (const auto &[name, sequence] : fresh) {
        const auto before = stored.find(name);
        if (before == stored.end()) continue;
        std::map<std::pair<std::string_view, std::string_view>, size_t> left;
        for (const Line &line : before->second.lines) ++left[{line.stamp, line.text}];
        for (size_t i = 0; i < sequence.lines.size(); ++i) {
            size_t &count = left[{sequence.lines[i].stamp, sequence.lines[i].text}];
            known[sequence.rows[i]] = count != 0;
            if (count != 0) --count;
        }
    }
    return known;
}

std::vector<bool> known_rows(Database &database, int64_t device, const FaultFile &file) {
    const std::vector<FaultRow> rows = rows_of(database, device);
    const Sequences stored = sequences_of(rows), fresh = sequences_of(file.rows);
    const auto known = is_behind(database, device, file.written) ? known_of_older : known_of_newer;
    return known(stored, fresh, file.rows.size());
}

} // namespace

size_t store_faults(Database &database, const FaultFile &file, Microseconds now) {
    const int64_t device = device_id(database, file.device);
    const int64_t id = add_file(database, device, file, now);
    if (id == 0) return 0;
    const std::vector<bool> known = known_rows(database, device, file);
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
