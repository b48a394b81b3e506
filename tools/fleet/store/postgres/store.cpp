// Store on PostgreSQL, for one collector or many.
#include "fleet/store/postgres/open.h"

#include "fleet/store/postgres/batch.h"
#include "fleet/store/postgres/days.h"
#include "fleet/store/postgres/devices.h"
#include "fleet/store/postgres/schema.h"
#include "host/failure.h"

namespace dtfleet {
namespace postgres {
namespace {

constexpr int most_attempts = 5;          // when others write runs of the same devices
constexpr size_t most_staged = 8'000'000; // bytes

class PostgresStore final : public Store {
public:
    PostgresStore(const std::string &address, const Retention &retention)
        : connection_(address), retention_(retention), series_(connection_) {
        check_schema(connection_);
    }

    void write(std::span<const RunRecord> runs) override {
        prepare_stage();
        for (int attempt = 1;; ++attempt) {
            try {
                return write_once(runs);
            } catch (const Conflict &) {
                if (attempt == most_attempts) throw;
            }
        }
    }

    void take_inventory(const Inventory &inventory) override {
        change([&] { take_devices(connection_, inventory.devices); });
        series_.take_meanings(inventory.series);
        retention_ = inventory.retention;
    }

    bool tidy() override {
        if (purge_some(connection_)) return true;
        make_next_days(connection_);
        return !is_clock_held() && drop_old_day(connection_, retention_);
    }

    bool back_up(const std::string &) override {
        throw dtctl::Failure(dtctl::Exit::usage, "a shared database is copied with pg_dump");
    }

    // Its disk is the server's to watch; here it is enough that it answers, and can write.
    std::string no_room() override {
        const bool is_standby =
            connection_.number("SELECT 1 WHERE pg_is_in_recovery()").has_value();
        return is_standby ? "the database is a standby that cannot be written" : "";
    }

    bool is_clock_held() override { return false; }

    void pause(const std::string &device, Microseconds until) override {
        change([&] { pause_device(connection_, device, until); });
    }
    void rename(const std::string &from, const std::string &to) override {
        change([&] { rename_device(connection_, from, to); });
    }
    void forget(const std::string &device) override {
        change([&] { forget_device(connection_, device); });
    }
    void accept(const std::string &device) override {
        change([&] { accept_device(connection_, device); });
    }
    void accept_clock() override {}

private:
    void prepare_stage() {
        connection_.connect();
        if (stage_session_ != connection_.session()) {
            make_stage(connection_);
            staged_bytes_ = 0;
        }
        stage_session_ = connection_.session();
        if (staged_bytes_ > most_staged) {
            sweep_stage(connection_);
            staged_bytes_ = 0;
        }
    }

    void write_once(std::span<const RunRecord> runs) {
        Batch batch(connection_, series_, runs);
        batch.store();
        staged_bytes_ += batch.staged_bytes();
    }

    // Its row is taken first, as by those who store runs: so nobody waits for somebody who waits.
    template <typename Work> void change(Work work) {
        Transaction transaction(connection_, Transaction::Kind::write);
        connection_.query("SELECT 1 FROM meta WHERE key = 'next_collection' FOR UPDATE");
        connection_.query("UPDATE meta SET value = value + 1 WHERE key = 'changes'");
        work();
        transaction.commit();
    }

    Connection connection_;
    Retention retention_;
    SeriesTable series_;
    uint64_t stage_session_ = 0; // that has the stage,
    size_t staged_bytes_ = 0;    // and what went over it since it was swept
};

} // namespace

std::unique_ptr<Store> open_store(const std::string &address, const Retention &retention) {
    return std::make_unique<PostgresStore>(address, retention);
}

int64_t migrate_database(const std::string &address) {
    Connection connection(address);
    return migrate(connection);
}

} // namespace postgres
} // namespace dtfleet
