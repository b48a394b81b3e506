// Store on PostgreSQL, for one collector or many.
#include "fleet/store/postgres/open.h"

#include "fleet/store/postgres/devices.h"
#include "fleet/store/postgres/fault_table.h"
#include "fleet/store/postgres/lane.h"
#include "fleet/store/postgres/retention.h"
#include "fleet/store/postgres/schema.h"
#include "fleet/store/postgres/series_rows.h"
#include "fleet/store/postgres/shared_inventory.h"
#include "host/failure.h"

namespace dtfleet::postgres {
namespace {

class PostgresStore final : public Store {
public:
    PostgresStore(const std::string &address, const Retention &retention)
        : connection_(address), rows_(connection_), series_(rows_), house_(connection_, retention),
          lanes_(address) {
        check_schema(connection_);
    }

    void write(std::span<const RunRecord> runs) override { lanes_.write(runs); }
    size_t runs_at_once() const override { return 8000; } // some transactions for each lane

    void take_inventory(const Inventory &inventory) override { (void)share(inventory); }

    InventoryChanges share(const Inventory &inventory) {
        InventoryChanges changes;
        change([&] {
            changes = take_shared(connection_, inventory);
            series_.take_meanings(inventory.series);
        });
        lanes_.learn(inventory.series);
        house_.take(inventory.retention);
        return changes;
    }

    // An old one says nothing: who has it takes the new one next.
    void follow(const Inventory &inventory) override {
        if (inventory.number == 0) return;
        change([&] {
            if (stored_number() != inventory.number) return;
            series_.take_meanings(inventory.series);
            replan(connection_, turns_.changed(inventory.devices));
        });
        turns_.take(inventory.devices);
        house_.take(inventory.retention);
    }

    void take_meanings(const std::vector<SeriesMeaning> &meanings) override {
        change([&] { series_.take_meanings(meanings); });
        lanes_.learn(meanings);
    }

    size_t add_faults(const FaultFile &file) override {
        size_t added = 0;
        change([&] { added = store_faults(connection_, file); });
        return added;
    }

    bool tidy() override {
        connection_.connect();
        return house_.tidy();
    }

    bool back_up(const std::string &) override {
        throw dtctl::Failure(dtctl::Exit::usage,
                             "a database on a server is copied with its own pg_dump");
    }

    // Its disk is the server's to watch; here it is enough that it answers, and can write.
    std::string no_room() override {
        connection_.connect();
        const bool is_standby =
            connection_.number("SELECT 1 WHERE pg_is_in_recovery()").has_value();
        return is_standby ? "the database is a standby that cannot be written" : "";
    }

    bool is_clock_held() override { return house_.guard().is_held(); }
    bool is_too_large() override { return house_.is_too_large(); }

    void pause(const std::string &device, Microseconds until) override {
        change([&] { pause_device(connection_, device, until); });
    }
    void rename(const std::string &from, const std::string &to) override {
        change([&] {
            rename_device(connection_, from, to);
            rename_shared(connection_, from, to);
        });
    }
    void forget(const std::string &device) override {
        change([&] { forget_device(connection_, device); });
    }
    void accept(const std::string &device) override {
        change([&] { accept_device(connection_, device); });
    }
    void accept_clock() override { house_.guard().accept(); }

private:
    // Its row is taken first, as by those who store runs: so nobody waits for somebody who waits.
    template <typename Work> void change(Work work) {
        connection_.connect();
        Transaction transaction(connection_, Transaction::Kind::write);
        connection_.query("SELECT 1 FROM meta WHERE key = 'next_collection' FOR UPDATE");
        connection_.query("UPDATE meta SET value = value + 1 WHERE key = 'changes'");
        work();
        transaction.commit();
    }

    int64_t stored_number() {
        return connection_.number("SELECT value FROM meta WHERE key = 'inventory'").value_or(0);
    }

    Connection connection_;
    Turns turns_;
    PostgresSeries rows_;
    SeriesTable series_;
    Housekeeper house_;
    Lanes lanes_;
};

} // namespace

std::unique_ptr<Store> open_store(const std::string &address, const Retention &retention) {
    return std::make_unique<PostgresStore>(address, retention);
}

SharedInventory read_shared(const std::string &address) {
    Connection connection(address, Connection::Access::read);
    check_schema(connection);
    return stored_inventory(connection);
}

InventoryChanges write_shared(const std::string &address, const Inventory &inventory) {
    return PostgresStore(address, inventory.retention).share(inventory);
}

Migrated migrate_database(const std::string &address) {
    Connection connection(address);
    return migrate(connection);
}

} // namespace dtfleet::postgres
