// Leases on PostgreSQL: rows that are claimed are skipped by whoever claims at the same time.
#include "fleet/store/leases.h"

#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/schema.h"

#include <fmt/format.h>

namespace dtfleet::postgres {
namespace {

// Who has not told anything for this long is not counted; for a day, is deleted.
constexpr int64_t worker_gone = 30'000'000;
constexpr int64_t worker_forgotten = 86'400'000'000;

// Rows that another one is about to claim are left out.
std::string claim_of(const char *which) {
    return fmt::format(
        "WITH t AS MATERIALIZED (SELECT clock() AS now), "
        "c AS (SELECT id FROM device WHERE listed AND {} FOR NO KEY UPDATE SKIP LOCKED) "
        "UPDATE device d SET epoch = epoch + 1, worker = $1, lease_until = t.now + $2, "
        "free_at = t.now + $2 FROM c, t WHERE d.id = c.id "
        "RETURNING d.id, d.epoch, d.due, d.name, d.failures, d.last_try",
        which);
}
const std::string claim_due =
    claim_of("free_at <= (SELECT now FROM t) + $3 AND "
             "(SELECT value FROM meta WHERE key = 'inventory') = $5 ORDER BY free_at LIMIT $4");
const std::string claim_named = claim_of("name = $3 AND lease_until <= (SELECT now FROM t)");

struct Columns {
    std::vector<int64_t> devices, epochs, dues;
    explicit Columns(std::span<const Lease> leases) {
        for (const Lease &lease : leases) {
            devices.push_back(lease.device);
            epochs.push_back(lease.epoch);
            dues.push_back(lease.due);
        }
    }
};

// Rows are locked in the order of their ids, as by those who store runs: nobody waits in a circle.
class PostgresLeases final : public Leases {
public:
    PostgresLeases(const std::string &address, const std::string &name, const std::string &home)
        : connection_(address), name_(name), home_(home) {
        check_schema(connection_);
    }

    Told tell(const CollectorState &us) override {
        join();
        const Result row_of_us = connection_.query(
            "UPDATE worker SET seen = clock(), held = $2, rate = $3, lag = $4, oldest = $5 "
            "WHERE id = $1",
            worker_, static_cast<int64_t>(us.held), static_cast<int64_t>(us.rate * 1000), us.lag,
            us.oldest);
        if (row_of_us.changed() == 0) worker_ = 0; // forgotten: we join again
        Told told;
        told.collectors = collectors();
        const Result row =
            connection_.query("SELECT clock(), value FROM meta WHERE key = 'inventory'");
        told.now = row.number(0, 0);
        told.inventory = row.number(0, 1);
        return told;
    }

    std::vector<Lease> claim(size_t most, Duration ahead, Duration length,
                             int64_t inventory) override {
        join();
        return leases_in(connection_.query(claim_due.c_str(), worker_, length.count(),
                                           ahead.count(), static_cast<int64_t>(most), inventory));
    }

    std::optional<Lease> claim_one(const std::string &device, Duration length) override {
        join();
        auto leases =
            leases_in(connection_.query(claim_named.c_str(), worker_, length.count(), device));
        if (leases.empty()) return std::nullopt;
        return leases.front();
    }

    // One that has ended and that nobody has taken since may go on, but not what is not to be
    // asked.
    std::vector<bool> renew(std::span<const Lease> leases, Duration length) override {
        const Columns columns(leases);
        const Result rows = connection_.query(
            "WITH l AS (SELECT id, n FROM device JOIN unnest($1, $2) WITH ORDINALITY "
            "AS w(i, e, n) ON id = i AND epoch = e WHERE listed AND paused_until <= clock() "
            "ORDER BY id FOR NO KEY UPDATE OF device) "
            "UPDATE device d SET lease_until = clock() + $3, free_at = clock() + $3 FROM l "
            "WHERE d.id = l.id RETURNING n",
            columns.devices, columns.epochs, length.count());
        std::vector<bool> ours(leases.size());
        for (int row = 0; row < rows.rows(); ++row)
            ours[static_cast<size_t>(rows.number(row, 0)) - 1] = true;
        return ours;
    }

    void release(std::span<const Lease> leases) override {
        const Columns columns(leases);
        connection_.query("WITH l AS (SELECT id, u FROM device JOIN unnest($1, $2, $3) "
                          "AS w(i, e, u) ON id = i AND epoch = e ORDER BY id "
                          "FOR NO KEY UPDATE OF device) "
                          "UPDATE device d SET lease_until = 0, due = u, free_at = "
                          "greatest(u, paused_until) FROM l WHERE d.id = l.id",
                          columns.devices, columns.epochs, columns.dues);
    }

    void leave() override {
        connection_.query("DELETE FROM worker WHERE id = $1", worker_);
        worker_ = 0;
    }

private:
    static std::vector<Lease> leases_in(const Result &rows) {
        std::vector<Lease> leases;
        leases.reserve(static_cast<size_t>(rows.rows()));
        for (int row = 0; row < rows.rows(); ++row)
            leases.push_back({rows.number(row, 0), rows.number(row, 1), rows.number(row, 2),
                              std::string(rows.bytes(row, 3)),
                              static_cast<uint32_t>(rows.number(row, 4)), rows.number(row, 5)});
        return leases;
    }

    // Two machines may call themselves the same.
    std::vector<CollectorState> collectors() {
        const Result rows = connection_.query("SELECT name, held, rate, lag, oldest FROM worker "
                                              "WHERE id = $1 OR seen > clock() - $2 "
                                              "ORDER BY name, id",
                                              worker_, worker_gone);
        std::vector<CollectorState> found;
        found.reserve(static_cast<size_t>(rows.rows()));
        std::string name;
        for (int row = 0, same = 1; row < rows.rows(); ++row) {
            same = rows.bytes(row, 0) == name ? same + 1 : 1;
            name = rows.bytes(row, 0);
            found.push_back({same == 1 ? name : fmt::format("{} ({})", name, same),
                             static_cast<uint64_t>(rows.number(row, 1)),
                             static_cast<double>(rows.number(row, 2)) / 1000, rows.number(row, 3),
                             rows.number(row, 4)});
        }
        return found;
    }

    // Each start is another collector, whatever its name, unless it is known to be the next life of
    // one that is dead for certain: what that held is free.
    void join() {
        if (worker_ != 0) return;
        connection_.query("DELETE FROM worker WHERE seen < clock() - $1", worker_forgotten);
        const int64_t worker =
            connection_
                .number("INSERT INTO worker(name, home, seen) VALUES ($1, nullif($2, ''), clock()) "
                        "ON CONFLICT (home) DO UPDATE SET name = excluded.name, seen = "
                        "excluded.seen RETURNING id",
                        name_, home_)
                .value_or(0);
        connection_.query("WITH l AS (SELECT id FROM device WHERE worker = $1 AND lease_until <> 0 "
                          "ORDER BY id FOR NO KEY UPDATE) UPDATE device d SET lease_until = 0, "
                          "free_at = greatest(due, paused_until) FROM l WHERE d.id = l.id",
                          worker);
        worker_ = worker;
    }

    Connection connection_;
    std::string name_, home_;
    int64_t worker_ = 0;
};

} // namespace

std::unique_ptr<Leases> open_leases(const std::string &address, const std::string &name,
                                    const std::string &home) {
    return std::make_unique<PostgresLeases>(address, name, home);
}

} // namespace dtfleet::postgres
