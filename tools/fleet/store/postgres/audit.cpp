// Looks through a whole database for what cannot be.
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/rows.h"
#include "fleet/store/postgres/schema.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace dtfleet::postgres {
namespace {

constexpr size_t most_complaints = 100;
constexpr int64_t most_rows = 1000; // of a statement: some tenths of a second

// Reads in statements that are short, while others write.
class Audit {
public:
    Audit(Connection &connection, const Advance &advance)
        : connection_(connection), advance_(advance) {}

    std::vector<std::string> complaints() {
        for (const auto look : {&Audit::check_numbers, &Audit::check_runs, &Audit::check_states,
                                &Audit::check_sums, &Audit::check_logs, &Audit::check_devices}) {
            try {
                (this->*look)();
            } catch (const dtctl::Failure &failure) { // what cannot be read ends one look
                complain(failure.what());
            }
        }
        return std::move(complaints_);
    }

private:
    void complain(std::string text) {
        const bool is_new =
            std::find(complaints_.begin(), complaints_.end(), text) == complaints_.end();
        if (is_new && !is_full()) complaints_.push_back(std::move(text));
    }
    bool is_full() const { return complaints_.size() >= most_complaints; }

    int64_t number(const char *sql) { return connection_.number(sql).value_or(0); }

    void check_numbers() {
        if (number("SELECT value FROM meta WHERE key = 'next_collection'") <=
            number("SELECT max(id) FROM collection"))
            complain("a number of runs would be given twice");
    }

    // ---- runs -----------------------------------------------------------------------------------

    void check_runs() {
        const int64_t first = number("SELECT min(time) FROM collection");
        const int64_t last = number("SELECT max(time) FROM collection");
        Microseconds time = INT64_MIN;
        std::string run = id_text({});
        while (!is_full()) {
            const Result rows = connection_.query(
                "WITH c AS MATERIALIZED (SELECT * FROM collection WHERE time >= $1 AND "
                "(time, run) > ($1, $2::uuid) ORDER BY time, run LIMIT $3) SELECT time, run, id, "
                "EXISTS (SELECT 1 FROM device d WHERE d.id = c.device), "
                "EXISTS (SELECT 1 FROM outcome o WHERE o.id = c.outcome), "
                "coalesce(cardinality(ordinals), n) IS NOT DISTINCT FROM n AND "
                "coalesce(cardinality(numbers), n) IS NOT DISTINCT FROM n AND "
                "coalesce(cardinality(texts), n) IS NOT DISTINCT FROM n, "
                "NOT EXISTS (SELECT FROM unnest(series) u(id) LEFT JOIN series s USING (id) "
                "WHERE s.id IS NULL) FROM c, LATERAL (SELECT cardinality(series) AS n) l",
                time, run, most_rows);
            for (int row = 0; row < rows.rows(); ++row) check_run(rows, row);
            if (rows.rows() < most_rows) return;
            time = rows.number(rows.rows() - 1, 0);
            run = id_text(run_id(rows.bytes(rows.rows() - 1, 1)));
            if (advance_)
                advance_(static_cast<uint64_t>(time - first), static_cast<uint64_t>(last - first));
        }
    }

    void check_run(const Result &rows, int row) {
        constexpr const char *mistakes[] = {"its device is not there", "it has no outcome",
                                            "some of its values are not there",
                                            "values of a series that is not there"};
        for (int i = 0; i < 4; ++i)
            if (rows.number(row, 3 + i) == 0)
                complain(fmt::format("run {}: {}", rows.number(row, 2), mistakes[i]));
    }

    // ---- what stands beside the runs ------------------------------------------------------------

    void check_states() {
        for (int64_t after = 0; !is_full();) {
            const auto device = connection_.number(
                "SELECT device FROM state WHERE device > $1 ORDER BY device LIMIT 1", after);
            if (!device) return;
            after = *device;
            check_states_of(after);
        }
    }

    void check_states_of(int64_t device) {
        if (!connection_.number("SELECT 1 FROM device WHERE id = $1", device))
            complain(fmt::format("device {}: it is not there, and has last values", device));
        std::set<std::tuple<int64_t, int64_t, int64_t>> longs;
        const Transaction transaction(connection_, Transaction::Kind::read);
        const Result values = connection_.query(
            "SELECT command, series, ordinal FROM long_value WHERE device = $1", device);
        for (int row = 0; row < values.rows(); ++row)
            longs.insert({values.number(row, 0), values.number(row, 1), values.number(row, 2)});
        const Result states =
            connection_.query("SELECT command, time, entries FROM state WHERE device = $1", device);
        for (int row = 0; row < states.rows(); ++row) {
            State state{states.number(row, 1), 0, 0, {}};
            if (!unpack(states.bytes(row, 2), state))
                complain(fmt::format("device {}: its last values cannot be read", device));
            for (const Entry &entry : state.entries)
                if (entry.form == Entry::Form::row &&
                    !longs.contains({states.number(row, 0), entry.series, entry.ordinal}))
                    complain(fmt::format("device {}: one of its last values is not there", device));
        }
    }

    void check_sums() {
        const Result rows = connection_.query(
            "SELECT r.device, r.hour FROM rollup r LEFT JOIN device d ON d.id = r.device WHERE "
            "d.id IS NULL OR cardinality(series) <> ANY(ARRAY[cardinality(ordinals), "
            "cardinality(n), cardinality(min), cardinality(max), cardinality(last)]) LIMIT $1",
            int64_t{most_complaints});
        for (int row = 0; row < rows.rows(); ++row)
            complain(fmt::format("device {}: the sums of hour {} cannot be read",
                                 rows.number(row, 0), rows.number(row, 1)));
    }

    void check_logs() {
        const Result rows = connection_.query(
            "SELECT DISTINCT l.device FROM log l LEFT JOIN device d ON d.id = l.device LEFT JOIN "
            "series s ON s.id = l.series WHERE d.id IS NULL OR s.id IS NULL LIMIT $1",
            int64_t{most_complaints});
        for (int row = 0; row < rows.rows(); ++row)
            complain(
                fmt::format("device {}: lines of a log that is not there", rows.number(row, 0)));
    }

    void check_devices() {
        const Result rows =
            connection_.query("SELECT id FROM device WHERE free_at <> greatest(due, lease_until, "
                              "paused_until) LIMIT $1",
                              int64_t{most_complaints});
        for (int row = 0; row < rows.rows(); ++row)
            complain(fmt::format("device {}: it may be asked at another time than it should",
                                 rows.number(row, 0)));
    }

    Connection &connection_;
    const Advance &advance_;
    std::vector<std::string> complaints_;
};

} // namespace

std::vector<std::string> check_database(const std::string &address, const Advance &advance) {
    Connection connection(address, Connection::Access::read);
    check_schema(connection);
    return Audit(connection, advance).complaints();
}

} // namespace dtfleet::postgres
