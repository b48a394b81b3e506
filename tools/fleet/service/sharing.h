// What a collector needs where several share a database: leases from it, and a spool for the time
// when it is away.
#pragma once

#include "fleet/engine/engine.h"
#include "fleet/service/home.h"
#include "fleet/service/lease_keeper.h"
#include "fleet/service/pace.h"
#include "fleet/store/spooling.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

class Sharing {
public:
    // The loop must outlive it. Where the database is a file there is nothing to share.
    Sharing(const Inventory &inventory, const std::string &database, const std::string &control,
            Loop &loop);
    ~Sharing();
    Sharing(const Sharing &) = delete;
    Sharing &operator=(const Sharing &) = delete;

    Engine::Fleet fleet() const { return keeper_ ? Engine::Fleet::shared : Engine::Fleet::own; }

    // The store with a spool before it, if it is one on a server.
    std::unique_ptr<Store> with_spool(std::unique_ptr<Store> store);

    void take_inventory(const Inventory &inventory);

    // The number of the inventory in the database, once that is known; 0: there is none.
    std::optional<int64_t> inventory() const;

    // As the engine's, but for a device of which another collector may have the lease.
    using Refuse = std::function<void(const std::string &reason)>;
    void ask(Engine &engine, const std::string &device, Kind kind, Engine::Answer answer,
             Refuse refuse);

    // To be called in each turn of the loop, and when the engine has stopped for good.
    void turn(Engine &engine, Time time);
    void leave(Engine &engine);

    void describe(const Engine &engine, Snapshot &snapshot) const;

private:
    struct Asked {
        Kind kind;
        Engine::Answer answer;
        Refuse refuse;
    };
    void take_fetched(Engine &engine, const Fetched &fetched);
    void exchange(Engine &engine);
    CollectorState state(const Engine &engine) const;

    Loop &loop_;
    std::string spool_; // its directory,
    uint64_t most_;     // and how many bytes may be in it
    size_t listed_ = 0;
    int64_t inventory_ = 0; // its number
    std::optional<Home> home_;
    Pace pace_;
    std::shared_ptr<SpoolReport> report_ = std::make_shared<SpoolReport>();
    std::optional<LeaseKeeper> keeper_;
    std::map<std::string, Asked> asked_; // that are being fetched
    std::vector<std::string> fetching_;  // that the keeper does not know yet
    uint64_t number_ = 0;                // in the loop
    bool has_news_ = false;
    Time next_{};
    Time next_second_{};
};

} // namespace dtfleet
