#include "fleet/store/sqlite/history.h"

#include "fleet/store/history.h"
#include "fleet/store/sqlite/rows.h"

#include <algorithm>

namespace dtfleet::sqlite {
namespace {

constexpr const char *runs_by_time =
    "SELECT id, run, device, time, outcome, command, first, count FROM collection WHERE "
    "device = ?1 AND time >= ?2 AND time < ?3 AND (time > ?2 OR id >= ?4) AND id <= ?5 ORDER BY "
    "time, id";
constexpr const char *runs_by_id =
    "SELECT id, run, device, time, outcome, command, first, count FROM collection WHERE id >= ? "
    "ORDER BY id";

class FileHistory final : public HistorySource {
public:
    explicit FileHistory(Database &database) : database_(database) {}
    FileHistory(const FileHistory &) = delete;
    FileHistory &operator=(const FileHistory &) = delete;
    ~FileHistory() override {
        if (runs_) runs_->reset();
        values_.reset();
    }

    int64_t device_behind(int64_t device) override {
        int64_t behind = 0;
        Statement &find =
            database_.statement("SELECT id FROM device WHERE id > ? ORDER BY id LIMIT 1");
        each_row(find.with(device), [&](const Statement &row) { behind = row.number(0); });
        return behind;
    }

    int64_t last_collection() override {
        return database_.number("SELECT max(id) FROM collection");
    }

    void begin(const Span &span) override {
        runs_ = &database_.statement(runs_by_time)
                     .with(span.device, span.from, span.to, span.id, span.last);
    }
    void begin(int64_t id) override { runs_ = &database_.statement(runs_by_id).with(id); }

    bool next_run(FlatValue &run) override {
        if (!runs_->step()) return false;
        run.collection = runs_->number(0);
        run.run = run_id(runs_->bytes(1));
        run.device = runs_->number(2);
        run.time = runs_->number(3);
        run.outcome = outcome_of(runs_->number(4));
        run.command = static_cast<uint32_t>(runs_->number(5));
        return true;
    }

    void begin_values(int64_t skipped) override {
        const int64_t first = runs_->number(6), count = runs_->number(7);
        values_.with(first + std::min(skipped, count), first + count);
    }
    bool next_value(FlatValue &value) override {
        if (!values_.step()) return false;
        value.series = values_.number(0);
        value.ordinal = static_cast<uint32_t>(values_.number(1));
        return true;
    }
    StoredValue stored_value() override { return sqlite::stored_value(values_, 2); }

private:
    Database &database_;
    Statement *runs_ = nullptr;
    Statement &values_ =
        database_.statement("SELECT series, ordinal, value FROM value WHERE id >= ? AND id < ?");
};

} // namespace

bool read_history(Database &database, const ValueQuery &query, Reader::Place &after, size_t limit,
                  std::vector<FlatValue> &rows) {
    FileHistory source(database);
    return dtfleet::read_history(source, query, after, limit, rows);
}

} // namespace dtfleet::sqlite
