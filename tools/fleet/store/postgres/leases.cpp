// Leases on PostgreSQL: rows that are claimed are skipped by whoever claims at the same time.
#include "fleet/store/leases.h"

#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/schema.h"

#include <fmt/format.h>

namespace dtfleet::postgres {
namespace {

// Whom nobody has seen for this long is not counted; whom nobody has seen for a day is deleted.
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
    claim_of("free_at <= (SELECT now FROM t) + $3 ORDER BY free_at LIMIT $4");
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
    PostgresLeases(const std::string &address, const std::string &name)
        : connection_(address), name_(name) {
        check_schema(connection_);
    }

    Claimed claim(size_t most, Duration ahead, Duration length) override {
        Claimed claimed;
        tell_of_us(claimed);
        take(claimed, connection_.query(claim_due.c_str(), worker_, length.count(), ahead.count(),
                                        static_cast<int64_t>(most)));
        return claimed;
    }

    Claimed claim_one(const std::string &device, Duration length) override {
        Claimed claimed;
        tell_of_us(claimed);
        take(claimed, connection_.query(claim_named.c_str(), worker_, length.count(), device));
        return claimed;
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

private:
    static void take(Claimed &claimed, const Result &rows) {
        for (int row = 0; row < rows.rows(); ++row)
            claimed.leases.push_back({rows.number(row, 0), rows.number(row, 1), rows.number(row, 2),
                                      std::string(rows.bytes(row, 3)),
                                      static_cast<uint32_t>(rows.number(row, 4)),
                                      rows.number(row, 5)});
    }

    // The first time we join: each start is another collector, whatever its name.
    void tell_of_us(Claimed &claimed) {
        if (worker_ == 0) {
            connection_.query("DELETE FROM worker WHERE seen < clock() - $1", worker_forgotten);
            worker_ = connection_
                          .number("INSERT INTO worker(name, seen) VALUES ($1, clock()) "
                                  "RETURNING id",
                                  name_)
                          .value_or(0);
        }
        const Result row = connection_.query(
            "WITH us AS (UPDATE worker SET seen = clock() WHERE id = $1) "
            "SELECT clock(), (SELECT count(*) FROM worker WHERE id <> $1 AND seen > clock() - $2)",
            worker_, worker_gone);
        claimed.now = row.number(0, 0);
        claimed.collectors = 1 + static_cast<uint32_t>(row.number(0, 1));
    }

    Connection connection_;
    std::string name_;
    int64_t worker_ = 0;
};

} // namespace

std::unique_ptr<Leases> open_leases(const std::string &address, const std::string &name) {
    return std::make_unique<PostgresLeases>(address, name);
}

} // namespace dtfleet::postgres
