#include "fleet/store/postgres/history.h"

#include "fleet/store/history.h"
#include "fleet/store/postgres/rows.h"

namespace dtfleet::postgres {
namespace {

constexpr int64_t runs_at_once = 200;

#define DT_RUN "SELECT id, run, device, time, outcome, command, series, ordinals, numbers, texts "

// Partitions hold days, so the time by itself says where to look.
constexpr const char *runs_by_time =
    DT_RUN "FROM collection WHERE device = $1 AND time >= $2 AND time < $3 AND "
           "(time > $2 OR id >= $4) AND id <= $5 ORDER BY time, id LIMIT $6";
constexpr const char *runs_by_id = DT_RUN "FROM collection WHERE id >= $1 ORDER BY id LIMIT $2";

#undef DT_RUN

// The runs come some at a time.
class ServerHistory final : public HistorySource {
public:
    explicit ServerHistory(Connection &connection) : connection_(connection) {}

    int64_t device_behind(int64_t device) override {
        return connection_.number("SELECT id FROM device WHERE id > $1 ORDER BY id LIMIT 1", device)
            .value_or(0);
    }

    int64_t last_collection() override {
        return connection_.number("SELECT value - 1 FROM meta WHERE key = 'next_collection'")
            .value_or(0);
    }

    void begin(const Span &span) override {
        is_by_time_ = true;
        span_ = span;
        read_runs();
    }
    void begin(int64_t id) override {
        is_by_time_ = false;
        span_.id = id;
        read_runs();
    }

    bool next_run(FlatValue &run) override {
        if (++row_ == runs_->rows() && row_ == runs_at_once) {
            span_.from = runs_->number(row_ - 1, 3);
            span_.id = runs_->number(row_ - 1, 0) + 1;
            read_runs();
            ++row_;
        }
        if (row_ >= runs_->rows()) return false;
        run.collection = runs_->number(row_, 0);
        run.run = run_id(runs_->bytes(row_, 1));
        run.device = runs_->number(row_, 2);
        run.time = runs_->number(row_, 3);
        run.outcome = outcome_of(runs_->number(row_, 4));
        run.command = static_cast<uint32_t>(runs_->number(row_, 5));
        return true;
    }

    void begin_values(int64_t skipped) override {
        next_ = static_cast<size_t>(skipped);
        series_ = runs_->numbers(row_, 6);
        ordinals_ = runs_->numbers(row_, 7);
        numbers_ = runs_->numbers(row_, 8);
        texts_ = runs_->texts(row_, 9);
    }
    bool next_value(FlatValue &value) override {
        if (next_ >= series_.size()) return false;
        const size_t i = next_++;
        value.series = series_[i].value_or(0);
        value.ordinal = i < ordinals_.size() ? static_cast<uint32_t>(ordinals_[i].value_or(0)) : 0;
        return true;
    }
    StoredValue stored_value() override {
        const size_t i = next_ - 1;
        if (i < numbers_.size() && numbers_[i])
            return {StoredValue::Form::number, static_cast<uint64_t>(*numbers_[i]), {}};
        if (i < texts_.size() && texts_[i])
            return {StoredValue::Form::bytes, 0, std::string(*texts_[i])};
        return {};
    }

private:
    void read_runs() {
        row_ = -1;
        if (is_by_time_)
            runs_ = connection_.query(runs_by_time, span_.device, span_.from, span_.to, span_.id,
                                      span_.last, runs_at_once);
        else
            runs_ = connection_.query(runs_by_id, span_.id, runs_at_once);
    }

    Connection &connection_;
    bool is_by_time_ = false;
    Span span_; // that is not read yet
    std::optional<Result> runs_;
    int row_ = -1;
    size_t next_ = 0; // value
    std::vector<std::optional<int64_t>> series_, ordinals_, numbers_;
    std::vector<std::optional<std::string_view>> texts_;
};

} // namespace

bool read_history(Connection &connection, const ValueQuery &query, Reader::Place &after,
                  size_t limit, std::vector<FlatValue> &rows) {
    ServerHistory source(connection);
    return dtfleet::read_history(source, query, after, limit, rows);
}

} // namespace dtfleet::postgres
