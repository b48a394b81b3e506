#include "fleet/service/service.h"

#include "fleet/store/shared_inventory.h"
#include "host/counted.h"
#include "host/descriptors.h"
#include "host/failure.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <sys/signalfd.h>

#include <csignal>
#include <filesystem>

namespace dtfleet {
namespace {

using nlohmann::json;
using Level = Journal::Level;

constexpr Time tick_time = std::chrono::seconds(1);

// Blocks the signals that end or reload the service, in all its threads: they are read from this
// descriptor.
dtctl::Fd signal_descriptor() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    (void)::sigprocmask(SIG_BLOCK, &set, nullptr);
    return dtctl::Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

// What of an inventory is fixed when the service starts.
std::string fixed_changes(const Inventory &before, const Inventory &after) {
    std::string changes;
    const auto compare = [&](const char *key, bool same) {
        if (!same) changes += fmt::format("{}{}", changes.empty() ? "" : ", ", key);
    };
    compare("database", before.database == after.database);
    compare("listen", before.listen == after.listen);
    compare("announce", before.announce == after.announce);
    compare("control", before.control == after.control);
    compare("spool", before.spool == after.spool);
    compare("[web] bind", before.web_bind == after.web_bind);
    compare("[web] token", before.web_token == after.web_token);
    return changes;
}

// What the database has goes with the settings that are ours.
Loaded load_joined(Inventory own) {
    const SharedInventory shared = read_shared(own.database);
    Loaded loaded = load_shared_text(shared.text);
    loaded.inventory = joined(std::move(own), std::move(loaded.inventory));
    loaded.inventory.number = shared.number;
    return loaded;
}

Loaded load_all(const std::string &file) {
    Loaded loaded = load_inventory(file);
    const bool is_whole = !loaded.complaints.empty() || !is_address(loaded.inventory.database);
    return is_whole ? loaded : load_joined(std::move(loaded.inventory));
}

} // namespace

Inventory checked_inventory(const std::string &path) { return checked(load_all(path)); }

std::string control_path(const Inventory &inventory, const std::string &file) {
    if (!inventory.control.empty()) return beside(file, inventory.control);
    return beside(is_address(inventory.database) ? file : database_path(inventory, file),
                  "dtfleet.sock");
}

std::string database_path(const Inventory &inventory, const std::string &file) {
    return is_address(inventory.database) ? inventory.database : beside(file, inventory.database);
}

Service::Service(std::string file)
    : file_(std::move(file)), signals_(signal_descriptor()),
      inventory_(std::make_shared<const Inventory>(checked(load_inventory(file_)))),
      control_(
          control_path(*inventory_, file_), loop_,
          [this](const json &request, const Control::Reply &reply) { answer(request, reply); }),
      sharing_(*inventory_, database_path(*inventory_, file_), control_path(*inventory_, file_),
               loop_),
      writer_({[this, path = database_path(*inventory_, file_), keeps = inventory_->retention] {
                   return open_database(path, keeps);
               },
               [this] { restore(); }}),
      witness_(writer_, journal_), engine_(inventory_, loop_, witness_, sharing_.fleet()),
      operators_(inventory_, engine_, sharing_, writer_, witness_),
      reloader_(loop_, [this](Loaded loaded) { take_loaded(std::move(loaded)); }) {
    loop_.add(signals_.get(), [this] { take_signals(); });
    loop_.add(writer_.fd(), [this] { writer_.deliver(); });
    open_web();
    check_descriptors();
}

// Reads, before the database has seen this service's inventory, how the last one left it.
std::unique_ptr<Store> Service::open_database(const std::string &path, const Retention &retention) {
    auto store = sharing_.with_spool(open_store(path, retention));
    known_ = open_reader(path)->devices();
    return store;
}

// Who failed goes on waiting, who is paused stays so, and what was reported is not reported again.
void Service::restore() {
    engine_.restore(known_);
    witness_.identities().restore(known_);
    known_ = {};
    witness_.identities().take_inventory(*inventory_);
    writer_.take_inventory(inventory_);
}

void Service::open_web() {
    if (inventory_->web_bind.empty()) return;
    web_.emplace(*inventory_, file_, board_,
                 [path = database_path(*inventory_, file_)] { return open_reader(path); });
    const std::string &bind = inventory_->web_bind;
    journal_.say(Level::info, fmt::format("the page is at http://{}:{}/",
                                          bind.substr(0, bind.rfind(':')), web_->port()));
}

void Service::check_descriptors() {
    constexpr size_t besides = 512; // strangers, the page, the database, commands
    const size_t wanted = inventory_->limits.open + inventory_->limits.waiting + besides;
    const size_t allowed = dtctl::allow_descriptors();
    if (allowed < wanted)
        journal_.say(Level::warning,
                     fmt::format("{} descriptors are allowed, and the limits on runs may need {}",
                                 allowed, wanted));
}

void Service::run() {
    notify_.ready(devices());
    while (!is_stopping_) {
        const Time next = std::min({engine_.next_pass(), notify_.next(), next_tick_});
        engine_.pass(loop_.wait(next));
        turn(now());
    }
    notify_.stopping();
    engine_.stop();
    sharing_.leave(engine_);
    for (const Time end = now() + Seconds(2); witness_.is_holding() && now() < end;)
        loop_.wait(end);
}

std::string Service::devices() const {
    return dtctl::counted(inventory_->devices.size(), "device");
}

void Service::turn(Time time) {
    notify_.turned(time);
    sharing_.turn(engine_, time);
    if (is_reloading_ && !engine_.is_taking() && !reloader_.is_reading()) finish_taking();
    if (next_tick_ <= time) tick(time);
}

void Service::tick(Time time) {
    next_tick_ = time + tick_time;
    control_.pass(time);
    follow();
    witness_.troubles().pass(time);
    Snapshot now = snapshot(time);
    notify_.status(now.not_ready.empty() ? devices() : "asks nobody: " + now.not_ready);
    hindrance_.note(now.not_ready, now.dropped, time);
    hindrance_.note_outage(now.shared ? now.shared->away : "");
    hindrance_.note_retention(now.clock_held, now.too_large);
    board_.put(std::move(now));
}

Snapshot Service::snapshot(Time time) const {
    Snapshot snapshot;
    engine_.describe(snapshot);
    const Writer::Counts counts = writer_.counts();
    snapshot.stored = counts.stored;
    snapshot.dropped = counts.dropped;
    snapshot.writing = counts.writing;
    snapshot.clock_held = counts.clock_held;
    snapshot.too_large = counts.too_large;
    snapshot.not_ready = writer_.not_ready();
    snapshot.turned = time;
    sharing_.describe(engine_, snapshot);
    return snapshot;
}

void Service::take_signals() {
    signalfd_siginfo signal{};
    while (::read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
        if (signal.ssi_signo == SIGHUP)
            reload();
        else
            is_stopping_ = true;
    }
}

// ---- another inventory --------------------------------------------------------------------------

void Service::reload() {
    notify_.reloading();
    reloader_.start([file = file_] { return load_all(file); });
}

// Another inventory in the database: our own settings stay as they are.
void Service::follow() {
    const std::optional<int64_t> number = sharing_.inventory();
    const bool is_known = !number || *number == inventory_->number || *number == refused_;
    if (is_known || is_reloading_ || reloader_.is_reading()) return;
    notify_.reloading();
    reloader_.start([own = inventory_] { return load_joined(*own); });
}

// The last good inventory stays. What cannot be read now is tried again.
void Service::refuse_loaded(const Loaded &loaded) {
    refused_ = loaded.is_read ? loaded.inventory.number : -1;
    const std::string mistakes = text_of(loaded.complaints);
    if (!reload_replies_.empty() || loaded.is_read || mistakes != mistakes_) {
        journal_.say(Level::error, "the configuration has mistakes, and the one before it stays:");
        journal_.say(Level::error, mistakes);
    }
    mistakes_ = mistakes;
    finish_reload({{"error", mistakes}});
}

void Service::take_loaded(Loaded loaded) {
    if (!loaded.complaints.empty()) return refuse_loaded(loaded);
    mistakes_.clear();
    const auto before =
        std::exchange(inventory_, std::make_shared<const Inventory>(std::move(loaded.inventory)));
    const std::string fixed = fixed_changes(*before, *inventory_);
    if (!fixed.empty())
        journal_.say(Level::warning, fmt::format("a restart is needed for a new {}", fixed));
    engine_.take_inventory(inventory_);
    sharing_.take_inventory(*inventory_);
    witness_.identities().take_inventory(*inventory_);
    if (web_) web_->take_inventory(*inventory_);
    is_reloading_ = true;
}

// The store has it after the runs that were begun before it.
void Service::finish_taking() {
    writer_.take_inventory(inventory_);
    journal_.say(Level::info, "read the configuration again: " + devices());
    is_reloading_ = false;
    finish_reload({{"reloaded", true}});
}

void Service::finish_reload(const json &answer) {
    notify_.ready(devices());
    for (const Control::Reply &reply : std::exchange(reload_replies_, {})) reply(answer);
}

// ---- commands -----------------------------------------------------------------------------------

void Service::answer(const json &request, const Control::Reply &reply) {
    if (operators_.answer(request, reply)) return;
    if (request.contains("status")) return reply(status());
    if (!request.contains("reload")) return reply({{"error", "an unknown request"}});
    reload_replies_.push_back(reply);
    reload();
}

json Service::status() const {
    const Snapshot now = snapshot(dtfleet::now());
    json status{{"devices", now.devices},    {"queued", now.queued}, {"waiting", now.waiting},
                {"open", now.connected},     {"stored", now.stored}, {"writing", now.writing},
                {"dropped", now.dropped},    {"window", now.window}, {"clock_held", now.clock_held},
                {"not_ready", now.not_ready}};
    if (now.shared)
        status.update({{"collectors", now.shared->collectors.size()},
                       {"inventory", inventory_->number},
                       {"held", now.shared->held},
                       {"spool_runs", now.shared->spool_runs},
                       {"away", now.shared->away}});
    return status;
}

} // namespace dtfleet
