#include "fleet/service/sharing.h"

#include <fmt/format.h>

#include <unistd.h>

#include <filesystem>

namespace dtfleet {
namespace {

constexpr Time often = std::chrono::milliseconds(20); // enough for what changes all the time

// As others are told of this collector.
std::string own_name(const Inventory &inventory) {
    char host[256] = "";
    (void)::gethostname(host, sizeof host - 1);
    return fmt::format("{}:{}", host, inventory.announce);
}

std::string beside_socket(const std::string &control, const char *extension) {
    return std::filesystem::path(control).replace_extension(extension);
}

} // namespace

// Its files stand beside the control socket, which no other service has.
Sharing::Sharing(const Inventory &inventory, const std::string &database,
                 const std::string &control, Loop &loop)
    : loop_(loop), spool_(beside_socket(control, ".spool")), most_(inventory.spool) {
    if (!is_address(database)) return;
    home_.emplace(beside_socket(control, ".lock"));
    keeper_.emplace([database, name = own_name(inventory),
                     home = home_->key()] { return open_leases(database, name, home); },
                    inventory.limits.run, inventory.outage_grace);
    number_ = loop_.add(keeper_->fd(), [this] { has_news_ = true; });
}

Sharing::~Sharing() {
    if (keeper_) loop_.remove(number_, keeper_->fd());
}

std::unique_ptr<Store> Sharing::with_spool(std::unique_ptr<Store> store) {
    if (!keeper_) return store;
    return std::make_unique<SpoolingStore>(std::move(store), Spool(spool_, most_), report_);
}

void Sharing::take_inventory(const Inventory &inventory) {
    listed_ = inventory.devices.size();
    inventory_ = inventory.number;
    if (keeper_) keeper_->set_times(inventory.limits.run, inventory.outage_grace);
}

std::optional<int64_t> Sharing::inventory() const {
    return keeper_ ? keeper_->counts().inventory : std::nullopt;
}

void Sharing::ask(Engine &engine, const std::string &device, Kind kind, Engine::Answer answer,
                  Refuse refuse) {
    std::string reason = "it is being asked already";
    if (!engine.is_ours(device)) {
        const bool is_new = asked_.count(device) == 0;
        if (!is_new) return refuse(reason);
        asked_[device] = {kind, std::move(answer), std::move(refuse)};
        fetching_.push_back(device);
        next_ = Time(0);
    } else if (!engine.ask(device, kind, std::move(answer), reason)) {
        refuse(reason);
    }
}

void Sharing::take_fetched(Engine &engine, const Fetched &fetched) {
    const auto found = asked_.extract(fetched.device);
    if (found.empty()) return;
    const Asked &asked = found.mapped();
    std::string reason = fetched.reason;
    if (fetched.grant) engine.grant_by_hand(*fetched.grant);
    if (!fetched.grant || !engine.ask(fetched.device, asked.kind, asked.answer, reason))
        asked.refuse(reason);
}

void Sharing::turn(Engine &engine, Time time) {
    if (!keeper_ || (!has_news_ && time < next_)) return;
    next_ = time + often;
    exchange(engine);
}

void Sharing::exchange(Engine &engine) {
    has_news_ = false;
    const Grants grants = keeper_->take();
    engine.grant(grants);
    for (const Fetched &fetched : grants.fetched) take_fetched(engine, fetched);
    LeaseKeeper::Wishes wishes;
    wishes.fetching = std::exchange(fetching_, {});
    wishes.wanted = engine.wanted();
    wishes.returned = engine.take_returned();
    wishes.listed = listed_;
    wishes.inventory = engine.is_taking() ? 0 : inventory_;
    if (next_second_ <= next_) {
        next_second_ = next_ + Seconds(1);
        wishes.renewing = engine.ending();
        pace_.note(engine.statistics(), now());
        wishes.state = state(engine);
    }
    keeper_->put(std::move(wishes));
}

CollectorState Sharing::state(const Engine &engine) const {
    const Time oldest = engine.tenure().oldest(now());
    return {"", engine.tenure().held(), pace_.rate(), pace_.lag(),
            std::chrono::duration_cast<std::chrono::microseconds>(oldest).count()};
}

void Sharing::leave(Engine &engine) {
    if (!keeper_) return;
    engine.grant(keeper_->take()); // what has come meanwhile goes back, too
    engine.stop();
    LeaseKeeper::Wishes last;
    last.returned = engine.take_returned();
    keeper_->put(std::move(last));
}

void Sharing::describe(const Engine &engine, Snapshot &snapshot) const {
    if (!keeper_) return;
    LeaseKeeper::Counts counts = keeper_->counts();
    const SpoolReport::State spool = report_->get();
    SharedState &shared = snapshot.shared.emplace();
    shared.collectors = std::move(counts.collectors);
    shared.held = engine.tenure().held();
    shared.oldest = engine.tenure().oldest(now());
    shared.claimed = counts.claimed;
    shared.renewed = counts.renewed;
    shared.lost = counts.lost;
    shared.returned = counts.returned;
    shared.spool_runs = spool.runs;
    shared.spool_bytes = spool.bytes;
    shared.spooled = spool.spooled;
    shared.away = spool.away.empty() ? counts.trouble : spool.away;
    snapshot.dropped += spool.dropped;
    if (snapshot.not_ready.empty() && inventory_ == 0 && counts.inventory)
        snapshot.not_ready = *counts.inventory == 0 ? "the database has no inventory yet: `dtfleet "
                                                      "import` brings one"
                                                    : "the inventory is being read";
    if (snapshot.not_ready.empty() && shared.held == 0 && !shared.away.empty())
        snapshot.not_ready = "no device is ours to ask while the database is away: " + shared.away;
}

} // namespace dtfleet
