#include "fleet/store/sqlite/log_table.h"

#include "fleet/store/sqlite/rows.h"

namespace dtfleet::sqlite {
namespace {

// The device has sent exactly this before, and nothing else since. Texts are not compared then: a
// log that grows is read back, one that stands still need not be.
bool is_known(Database &database, const Log &log, uint64_t hash) {
    Statement &find = database.statement(
        "SELECT 1 FROM log_tail WHERE device = ? AND series = ? AND command = ? AND count = ? "
        "AND hash = ?");
    find.with(log.device, log.series, log.command, log.lines.size(), hash);
    const bool known = find.step();
    find.reset();
    return known;
}

int64_t end_of(Database &database, const Log &log) {
    Statement &find =
        database.statement("SELECT max(seq) FROM log WHERE device = ? AND series = ?");
    find.with(log.device, log.series);
    find.step();
    const int64_t end = find.number(0);
    find.reset();
    return end;
}

// The last lines that are stored, no more than the new log has.
Texts tail_of(Database &database, const Log &log, int64_t end) {
    Texts tail;
    Statement &find = database.statement("SELECT stamp, text FROM log WHERE device = ? AND "
                                         "series = ? AND seq > ? ORDER BY seq");
    each_row(find.with(log.device, log.series, end - static_cast<int64_t>(log.lines.size())),
             [&](const Statement &row) { tail.emplace_back(row.bytes(0), row.bytes(1)); });
    return tail;
}

} // namespace

void store_log(Database &database, const Log &log) {
    const uint64_t hash = hash_of(log.lines);
    if (is_known(database, log, hash)) return;
    const int64_t end = end_of(database, log);
    const Growth growth = growth_of(tail_of(database, log, end), end, log.lines);
    Statement &insert = database.statement("INSERT INTO log VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
    for (size_t i = growth.known; i < log.lines.size(); ++i)
        insert.run(log.device, log.series, growth.first + static_cast<int64_t>(i),
                   Bytes{log.lines[i].stamp}, Bytes{log.lines[i].text}, log.collection, log.time,
                   i == 0 && growth.has_gap);
    database.statement("INSERT OR REPLACE INTO log_tail VALUES(?, ?, ?, ?, ?, ?)")
        .run(log.device, log.series, log.command, growth.first, log.lines.size(), hash);
}

} // namespace dtfleet::sqlite
