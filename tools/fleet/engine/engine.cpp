#include "fleet/engine/engine.h"

#include "fleet/engine/target.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

constexpr Time busy = Seconds(1); // until a device that is being asked is looked at again
constexpr Time shortly = std::chrono::milliseconds(50); // until what is full or behind is
constexpr size_t slice = 1000;                          // devices of a new inventory taken at once

// Of a run that could not begin.
RunRecord refusal() {
    RunRecord record;
    record.outcome = Outcome::stopped;
    record.reason = "it has left the configuration meanwhile, or is off";
    return record;
}

// Whether a host may hear what is sent to that broadcast address: of the networks that have it, the
// largest.
bool hears(in_addr_t host, in_addr_t broadcast) {
    const uint32_t address = ntohl(broadcast), hosts = address & ~(address + 1);
    return broadcast == INADDR_BROADCAST || (ntohl(host) | hosts) == address;
}

} // namespace

Engine::Engine(std::shared_ptr<const Inventory> inventory, Loop &loop, Outlet &outlet, Fleet fleet)
    : limits_(inventory->limits), loop_(loop), outlet_(outlet),
      reception_(inventory->listen, limits_, loop, statistics_,
                 [this](Connection &connection) { receive(connection); }),
      announce_(inventory->announce), admission_(limits_), tenure_(fleet == Fleet::shared) {
    commander_number_ = loop_.add(commander_.fd(), [this] { take_refusals(); });
    if (announce_ == 0) announce_ = reception_.port();
    take_inventory(std::move(inventory));
    take_slice(SIZE_MAX);
}

Engine::~Engine() {
    for (size_t slot = 0; slot < targets_.size(); ++slot)
        if (targets_[slot]->run) close(slot);
    loop_.remove(commander_number_, commander_.fd());
}

// ---- the fleet ----------------------------------------------------------------------------------

size_t Engine::find(std::string_view device) const {
    const auto known = slots_.find(std::string(device));
    return known != slots_.end() && targets_[known->second]->is_listed ? known->second : none;
}

size_t Engine::slot_of(const std::string &name) {
    const auto [known, is_new] = slots_.emplace(name, targets_.size());
    if (is_new) {
        targets_.push_back(std::make_unique<Target>());
        targets_.back()->device.name = name;
        turns_.grow(places * targets_.size());
        deadlines_.grow(targets_.size());
    }
    return known->second;
}

void Engine::take_inventory(std::shared_ptr<const Inventory> inventory) {
    limits_ = inventory->limits;
    admission_.set_limits(limits_);
    incoming_ = Incoming{std::move(inventory), 0};
    ++generation_;
}

void Engine::take_slice(size_t most) {
    const std::vector<Device> &devices = incoming_->inventory->devices;
    const size_t end = incoming_->next + std::min(most, devices.size() - incoming_->next);
    while (incoming_->next < end) take_device(devices[incoming_->next++]);
    if (end < devices.size()) return;
    drop_unlisted();
    incoming_.reset();
}

// A device keeps its next turn unless its interval has changed.
void Engine::take_device(const Device &device) {
    const size_t slot = slot_of(device.name);
    Target &target = *targets_[slot];
    const bool was_listed = std::exchange(target.is_listed, device.enabled);
    const Device before = std::exchange(target.device, device);
    target.generation = generation_;
    const bool same = was_listed && device.enabled;
    const bool is_other = before.interval != device.interval || before.selftest != device.selftest;
    if (is_other && tenure_.has(slot) && !is_busy(slot)) give_back_unplanned(slot);
    if (!same || before.interval != device.interval) plan(slot, Kind::collection, now());
    if (!same || before.selftest != device.selftest) plan(slot, Kind::selftest, now());
}

void Engine::drop_unlisted() {
    listed_ = 0;
    for (const auto &target : targets_) {
        target->is_listed &= target->generation == generation_;
        listed_ += target->is_listed;
    }
}

void Engine::restore(const std::vector<DeviceState> &states) {
    const Time time = now();
    for (const DeviceState &state : states) {
        if (state.failures == 0 && state.paused_until == 0) continue;
        const size_t slot = slot_of(state.name);
        targets_[slot]->failures = state.failures;
        if (state.paused_until != 0) targets_[slot]->paused_until = moment_of(state.paused_until);
        plan(slot, Kind::collection, std::min(moment_of(state.last_try), time));
    }
}

void Engine::pause(std::string_view device, Time until) {
    const auto known = slots_.find(std::string(device));
    if (known == slots_.end()) return;
    const size_t slot = known->second;
    targets_[slot]->paused_until = until;
    plan(slot, Kind::collection, now());
    plan(slot, Kind::selftest, now());
}

void Engine::rename(std::string_view from, const std::string &to) {
    const auto known = slots_.find(std::string(from));
    if (known == slots_.end() || find(to) != none) return;
    const size_t slot = known->second;
    slots_.erase(known);
    slots_[to] = slot;
    targets_[slot]->device.name = to;
}

size_t Engine::hold(in_addr_t broadcast, Time until) {
    std::erase_if(holds_, [time = now()](const Hold &hold) { return hold.until <= time; });
    const auto open =
        std::count_if(endpoints_open_.begin(), endpoints_open_.end(),
                      [&](const auto &run) { return hears(run.first.ip, broadcast); });
    if (open == 0) holds_.push_back({broadcast, until});
    return static_cast<size_t>(open);
}

// Sets the next turn of a device that was asked at `after`.
void Engine::plan(size_t slot, Kind kind, Time after) {
    const Target &target = *targets_[slot];
    if (tenure_.is_shared()) return; // its lease says when
    const Time interval = kind == Kind::selftest ? target.device.selftest : target.device.interval;
    if (!target.is_listed || interval == Time(0)) return turns_.clear(place_of(slot, kind));
    const Time wait = interval_after(target.failures, interval) - interval;
    const Time earliest = std::max({after + wait, now(), target.paused_until});
    turns_.set(place_of(slot, kind), next_turn(target.device, kind, earliest));
}

bool Engine::ask(std::string_view device, Kind kind, Answer answer, std::string &reason) {
    const auto known = slots_.find(std::string(device));
    const size_t slot = known == slots_.end() ? none : known->second;
    if (slot == none || !targets_[slot]->is_listed) {
        const bool is_off = slot != none && targets_[slot]->generation == generation_;
        reason = is_off ? "it is off: the configuration says enabled = false"
                        : "there is no such device";
        return false;
    }
    if (admission_.holds(slot) || targets_[slot]->answer) {
        reason = "it is being asked already";
        return false;
    }
    turns_.clear(place_of_retry(slot));
    targets_[slot]->answer = std::move(answer);
    make_due(slot, kind, now());
    return true;
}

// ---- turns --------------------------------------------------------------------------------------

Time Engine::next_pass() {
    Time next = std::min({turns_.next(), deadlines_.next(), reception_.next_pass()});
    if (admission_.queued() != 0 && !outlet_.has_room()) next = std::min(next, now() + shortly);
    return incoming_ ? now() : next;
}

void Engine::pass(bool caught_up) {
    const Time time = now();
    size_t place;
    reception_.pass(time);
    if (incoming_) take_slice(slice);
    while (turns_.take(time, place)) {
        const size_t slot = place / places;
        if (place == place_of_retry(slot))
            queue(slot);
        else
            take_turn(slot, static_cast<Kind>(place % places), time);
    }
    // Who seems not to have answered may be waiting to be accepted.
    if (deadlines_.next() <= time) reception_.accept_all();
    caught_up_ = caught_up && !reception_.behind();
    while (deadlines_.take(time, place)) wake(place, time);
    start_runs();
}

void Engine::take_turn(size_t slot, Kind kind, Time time) {
    // A self-test comes seldom: it waits for the end of a collection.
    if (kind == Kind::selftest && is_busy(slot))
        return turns_.set(place_of(slot, kind), time + busy);
    const Target &target = *targets_[slot];
    const bool is_leased = tenure_.has(slot);
    const Time due = is_leased ? tenure_.turn(slot, target.device).time : time;
    if (target.is_listed || is_leased) make_due(slot, kind, due);
    plan(slot, kind, time);
}

bool Engine::is_busy(size_t slot) const {
    return admission_.holds(slot) || turns_.due(place_of_retry(slot)) != Agenda::never;
}

void Engine::make_due(size_t slot, Kind kind, Time due) {
    if (is_busy(slot)) {
        ++statistics_.overlaps;
        return;
    }
    targets_[slot]->due = due;
    targets_[slot]->due_kind = kind;
    queue(slot);
}

void Engine::queue(size_t slot) {
    using Rank = Admission::Rank;
    const Target &target = *targets_[slot];
    admission_.add(slot, target.device.ip,
                   target.answer         ? Rank::first
                   : target.failures > 0 ? Rank::backed_off
                                         : Rank::usual);
}

void Engine::start_runs() {
    if (admission_.queued() == 0) return;
    if (!outlet_.has_room()) {
        ++statistics_.held_back;
        return;
    }
    size_t slot;
    while (admission_.take(slot))
        if (may_begin(slot)) begin(slot);
}

// Much may have happened since the device became due.
bool Engine::may_begin(size_t slot) {
    Target &target = *targets_[slot];
    const Time time = now(), free = free_at(target, time);
    const bool is_wanted = target.is_listed && (target.answer || target.paused_until <= time) &&
                           tenure_.holds(slot, time + limits_.run);
    if (is_wanted && free <= time) return true;
    admission_.end(slot);
    if (is_wanted) {
        turns_.set(place_of_retry(slot), free);
        return false;
    }
    give_back(slot);
    if (const Answer answer = std::exchange(target.answer, nullptr)) answer(refusal());
    return false;
}

// Nobody else may ask a device at the same time: neither one that has its address under another
// name, nor who has the network to itself.
Time Engine::free_at(const Target &target, Time time) const {
    if (endpoints_open_.count({target.device.ip, target.device.port}) != 0) return time + busy;
    Time free = time;
    for (const Hold &hold : holds_)
        if (hears(target.device.ip, hold.broadcast)) free = std::max(free, hold.until);
    return free;
}

void Engine::begin(size_t slot) {
    Target &target = *targets_[slot];
    target.run = std::make_unique<Run>();
    target.run->token = tokens_.draw();
    target.run->endpoint = {target.device.ip, target.device.port};
    // Long before the time that an answer takes at present, a repeated command is one too many.
    target.run->resend_step = std::max(first_resend, 4 * admission_.window().typical());
    tokens_open_[target.run->token] = slot;
    endpoints_open_[target.run->endpoint] = slot;
    target.run->sent = now();
    statistics_.lateness.add(target.run->sent - target.due);
    tenure_.begun(target.run->sent);
    send_command(slot);
}

void Engine::send_command(size_t slot) {
    const Target &target = *targets_[slot];
    Run &run = *target.run;
    // This process may have been stopped for any time up to here.
    if (!tenure_.holds(slot, now())) return end(slot, Outcome::stopped, lease_over);
    const uint32_t command = target.due_kind == Kind::selftest ? 3 : target.device.command;
    if (!commander_.send(run.endpoint, command, run.token, announce_))
        return end(slot, Outcome::refused, fmt::format("cannot send: {}", std::strerror(errno)));
    ++statistics_.commands;
    run.resend = now() + run.resend_step;
    run.resend_step *= 2;
    set_deadline(slot);
}

void Engine::set_deadline(size_t slot) {
    const Run &run = *targets_[slot]->run;
    const Time next = run.connection ? run.heard + limits_.silence
                                     : std::min<Time>(run.sent + limits_.silence, run.resend);
    deadlines_.set(slot, std::min<Time>(next, run.sent + limits_.run));
}

// A run's next moment has come: it has taken too long, its device is silent, or it is asked again.
void Engine::wake(size_t slot, Time time) {
    if (!targets_[slot]->run) return;
    if (!tenure_.holds(slot, time)) return end(slot, Outcome::stopped, lease_over);
    const Run &run = *targets_[slot]->run;
    const bool is_late = time >= run.sent + limits_.run;
    if (!is_late && !caught_up_) return deadlines_.set(slot, time + shortly);
    if (!run.connection) return wake_waiting(slot, time);
    if (is_late) return end(slot, Outcome::too_long, fmt::format("took {} s", limits_.run.count()));
    wake_connected(slot, time);
}

void Engine::wake_waiting(size_t slot, Time time) {
    Run &run = *targets_[slot]->run;
    if (time >= run.sent + std::min(limits_.silence, limits_.run))
        return end(slot, Outcome::unanswered, "no connection came");
    if (time < run.resend) return set_deadline(slot);
    ++run.resends;
    ++statistics_.resends;
    send_command(slot);
}

void Engine::wake_connected(size_t slot, Time time) {
    const Run &run = *targets_[slot]->run;
    if (time < run.heard + limits_.silence) return set_deadline(slot);
    end(slot, Outcome::silent, fmt::format("silent for {} s", limits_.silence.count()));
}

// ---- connections --------------------------------------------------------------------------------

void Engine::receive(Connection &connection) {
    std::array<uint8_t, 16'384> buffer;
    const ssize_t count = ::recv(connection.socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && (dtctl::would_block(errno) || errno == EINTR)) return;
    const std::string why = count < 0 ? std::strerror(errno) : "";
    if (count > 0 && take_bytes(connection, std::span(buffer).first(static_cast<size_t>(count))))
        return;
    if (!connection.slot) return reception_.turn_away(connection);
    if (count < 0) return end(*connection.slot, Outcome::reset, why);
    if (count == 0) connection.intake.close();
    end(*connection.slot, connection.intake.outcome(), connection.intake.reason());
}

// False when the connection is to be closed.
bool Engine::take_bytes(Connection &connection, std::span<const uint8_t> bytes) {
    const bool good = connection.intake.feed(bytes);
    if (!connection.slot && connection.intake.opening() && !claim(connection)) return false;
    if (!good) return false;
    if (connection.slot) targets_[*connection.slot]->run->heard = now();
    acknowledge(connection);
    return true;
}

// The opening's token says whose run this is. The token alone: a device may have several addresses,
// or one that is translated on the way.
bool Engine::claim(Connection &connection) {
    const auto open = tokens_open_.find(connection.intake.opening()->sequence);
    if (open == tokens_open_.end() || targets_[open->second]->run->connection) {
        ++statistics_.doubles;
        return false;
    }
    const size_t slot = open->second;
    Run &run = *targets_[slot]->run;
    run.connection = reception_.take(connection);
    connection.slot = slot;
    run.opening = run.heard = now();
    run.opened = wall_microseconds();
    admission_.connect(slot);
    admission_.window().answered(run.opening, run.opening - run.sent);
    statistics_.to_connect.add(connection.accepted - run.sent);
    set_deadline(slot);
    return true;
}

// A byte a message. There is room for it; a device that has gone shows at the next receive.
void Engine::acknowledge(Connection &connection) {
    static constexpr char bytes[16] = {6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6};
    for (uint64_t left = connection.intake.take_unacknowledged(); left > 0;) {
        const size_t count = std::min<uint64_t>(left, sizeof bytes);
        const ssize_t sent = ::send(connection.socket.get(), bytes, count, MSG_NOSIGNAL);
        if (sent <= 0) return;
        left -= static_cast<uint64_t>(sent);
    }
}

void Engine::take_refusals() {
    while (const auto refusal = commander_.next_refusal()) {
        const auto open = endpoints_open_.find(refusal->first);
        if (open == endpoints_open_.end() || targets_[open->second]->run->connection) continue;
        end(open->second, Outcome::refused, std::strerror(refusal->second));
    }
}

// ---- the end of a run ---------------------------------------------------------------------------

RunRecord Engine::record_of(size_t slot, Outcome outcome, std::string reason) {
    const Target &target = *targets_[slot];
    const Run &run = *target.run;
    RunRecord record;
    record.id = run.id;
    record.device = target.device.name;
    record.kind = target.due_kind;
    record.command = target.due_kind == Kind::selftest ? 3 : target.device.command;
    record.keeps_all = target.device.keep == Keep::all;
    record.outcome = outcome;
    record.reason = std::move(reason);
    record.resends = run.resends;
    record.time = run.opened != 0 ? run.opened : run.begun;
    if (!run.connection) return record;
    Connection &connection = *run.connection;
    const auto &identity = connection.intake.opening()->identity;
    record.identity = static_cast<uint16_t>(identity[0] << 8 | identity[1]);
    record.address = dtctl::address_text(connection.peer);
    record.to_connect = microseconds_between(run.sent, connection.accepted);
    record.to_opening = microseconds_between(connection.accepted, run.opening);
    record.to_end = microseconds_between(run.opening, now());
    record.messages = static_cast<uint32_t>(connection.intake.totals().messages);
    record.bytes = connection.intake.totals().bytes;
    // What breaks the format tells its place by itself.
    if (!is_whole(outcome) && outcome != Outcome::malformed)
        record.reason +=
            fmt::format(", after {} messages and {} bytes", record.messages, record.bytes);
    record.samples = connection.intake.take_samples();
    return record;
}

void Engine::end(size_t slot, Outcome outcome, std::string reason) {
    Target &target = *targets_[slot];
    RunRecord record = record_of(slot, outcome, std::move(reason));
    count(record, target.run->opening);
    close(slot);
    admission_.end(slot);
    settle(slot, record);
    outlet_.put(std::move(record));
}

void Engine::close(size_t slot) {
    Target &target = *targets_[slot];
    tokens_open_.erase(target.run->token);
    endpoints_open_.erase(target.run->endpoint);
    deadlines_.clear(slot);
    if (const auto &connection = target.run->connection)
        loop_.remove(connection->number, connection->socket.get());
    target.run.reset();
}

void Engine::count(const RunRecord &record, Time opening) {
    ++statistics_.runs[static_cast<size_t>(record.outcome)];
    statistics_.values += record.samples.list.size();
    statistics_.bytes += record.bytes;
    if (!is_whole(record.outcome)) return;
    admission_.window().went_well();
    statistics_.to_end.add(now() - opening);
}

// A run that this service cut off says nothing about the device.
void Engine::settle(size_t slot, RunRecord &record) {
    Target &target = *targets_[slot];
    if (record.kind == Kind::collection && record.outcome != Outcome::stopped)
        target.failures = is_whole(record.outcome) ? 0 : target.failures + 1;
    plan(slot, Kind::collection, now());
    record.lease = tenure_.end_run(slot, target.device, target.failures, record);
    if (tenure_.has(slot)) {
        const Tenure::Turn turn = tenure_.turn(slot, target.device);
        turns_.set(place_of(slot, turn.kind), turn.time);
    }
    if (const Answer answer = std::exchange(target.answer, nullptr)) answer(record);
}

void Engine::stop() {
    for (size_t slot = 0; slot < targets_.size(); ++slot)
        if (targets_[slot]->run) end(slot, Outcome::stopped, "the service stopped");
    for (size_t slot = 0; slot < targets_.size(); ++slot) give_back(slot);
}

void Engine::describe(Snapshot &snapshot) const {
    snapshot.statistics = statistics_;
    snapshot.devices = listed_;
    snapshot.queued = admission_.queued();
    snapshot.waiting = admission_.waiting();
    snapshot.connected = admission_.connected();
    snapshot.window = admission_.window().size();
}

} // namespace dtfleet
