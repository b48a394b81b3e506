#include "fleet/store/sqlite/log_table.h"

#include <string>

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
struct Tail {
    std::vector<std::pair<std::string, std::string>> texts;
    std::vector<Line> lines;
};

Tail tail_of(Database &database, const Log &log, int64_t end) {
    Tail tail;
    Statement &find = database.statement("SELECT stamp, text FROM log WHERE device = ? AND "
                                         "series = ? AND seq > ? ORDER BY seq");
    find.with(log.device, log.series, end - static_cast<int64_t>(log.lines.size()));
    while (find.step()) tail.texts.emplace_back(find.bytes(0), find.bytes(1));
    find.reset();
    for (const auto &[stamp, text] : tail.texts) tail.lines.push_back({stamp, text});
    return tail;
}

} // namespace

void store_log(Database &database, const Log &log) {
    const uint64_t hash = hash_of(log.lines);
    if (is_known(database, log, hash)) return;
    const int64_t end = end_of(database, log);
    const Tail tail = tail_of(database, log, end);
    const size_t common = overlap(tail.lines, log.lines);
    Statement &insert = database.statement("INSERT INTO log VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
    int64_t seq = end;
    for (size_t i = common; i < log.lines.size(); ++i) {
        const bool gap_before = i == 0 && end != 0;
        insert.run(log.device, log.series, ++seq, Bytes{log.lines[i].stamp},
                   Bytes{log.lines[i].text}, log.collection, log.time, gap_before);
    }
    database.statement("INSERT OR REPLACE INTO log_tail VALUES(?, ?, ?, ?, ?, ?)")
        .run(log.device, log.series, log.command, end + 1 - static_cast<int64_t>(common),
             log.lines.size(), hash);
}

} // namespace dtfleet::sqlite
