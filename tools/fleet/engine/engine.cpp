#include "fleet/engine/engine.h"

#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <sys/random.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

constexpr Time first_resend = Seconds(1); // and twice as long after each
constexpr Time busy = Seconds(1);         // until a device that is being asked is looked at again
constexpr Time full = std::chrono::milliseconds(50); // until an outlet that is full is
constexpr size_t most_strangers = 256;

RunId new_id() {
    RunId id;
    while (::getrandom(id.data(), id.size(), 0) != static_cast<ssize_t>(id.size())) {
    }
    return id;
}

constexpr size_t place_of(size_t slot, Kind kind) { return 2 * slot + static_cast<size_t>(kind); }

} // namespace

// A device, as long as the process lives: its slot stays its own when it leaves the inventory.
struct Engine::Target {
    Device device;
    bool is_listed = true;
    uint32_t failures = 0;
    Kind due_kind = Kind::collection; // of the run that waits or is open
    Time due{};
    Answer answer; // of who asked for that run by hand
    std::unique_ptr<Run> run;
};

struct Engine::Run {
    RunId id = new_id();
    uint32_t token = 0;
    Microseconds begun = wall_microseconds();
    Microseconds opened = 0;
    Time sent{}; // the first command
    Time opening{};
    Time resend{};
    Time resend_step = first_resend;
    Time heard{}; // the last byte
    uint32_t resends = 0;
    Endpoint endpoint;
    std::unique_ptr<Connection> connection; // none yet
};

struct Engine::Connection {
    Connection(dtctl::Fd fd, const sockaddr_in &from, const Limits &limits)
        : socket(std::move(fd)), peer(from), accepted(now()), intake(limits) {}

    dtctl::Fd socket;
    uint64_t number = 0; // in the loop
    sockaddr_in peer;
    Time accepted;
    std::optional<size_t> slot; // whose run it carries
    Intake intake;
};

Engine::Engine(const Inventory &inventory, Loop &loop, Outlet &outlet)
    : limits_(inventory.limits), announce_(inventory.announce), loop_(loop), outlet_(outlet),
      listener_(dtctl::listen_on(inventory.listen)), admission_(limits_) {
    loop_.add(listener_.get(), [this] { accept_all(); });
    loop_.add(commander_.fd(), [this] { take_refusals(); });
    if (announce_ == 0) announce_ = dtctl::local_port(listener_);
    take_inventory(inventory);
}

Engine::~Engine() = default;

// ---- the fleet ----------------------------------------------------------------------------------

size_t Engine::slot_of(const Device &device) {
    const auto [known, is_new] = slots_.emplace(device.name, targets_.size());
    if (is_new) {
        targets_.push_back(std::make_unique<Target>());
        turns_.grow(2 * targets_.size());
        deadlines_.grow(targets_.size());
    }
    return known->second;
}

// A device keeps its next turn unless its interval has changed.
void Engine::take_inventory(const Inventory &inventory) {
    std::vector<bool> kept(targets_.size());
    for (const Device &device : inventory.devices) {
        const size_t slot = slot_of(device);
        Target &target = *targets_[slot];
        const bool was_listed = slot < kept.size() && target.is_listed;
        if (slot < kept.size()) kept[slot] = true;
        const Device before = std::exchange(target.device, device);
        target.is_listed = device.enabled;
        if (!was_listed || before.interval != device.interval) plan(slot, Kind::collection, now());
        if (!was_listed || before.selftest != device.selftest) plan(slot, Kind::selftest, now());
    }
    for (size_t slot = 0; slot < kept.size(); ++slot)
        if (!kept[slot]) targets_[slot]->is_listed = false;
}

// Sets the next turn of a device that was asked at `after`. The self-test has a phase of its own,
// or it would always meet a collection.
void Engine::plan(size_t slot, Kind kind, Time after) {
    const Target &target = *targets_[slot];
    const bool is_test = kind == Kind::selftest;
    const Time interval = is_test ? target.device.selftest : target.device.interval;
    if (!target.is_listed || interval == Time(0)) return turns_.clear(place_of(slot, kind));
    const Time phase = phase_of(target.device.name + (is_test ? " selftest" : ""), interval);
    const Time wait = interval_after(target.failures, interval) - interval;
    turns_.set(place_of(slot, kind), next_turn(std::max(after + wait, now()), interval, phase));
}

bool Engine::ask(std::string_view device, Kind kind, Answer answer, std::string &reason) {
    const auto known = slots_.find(std::string(device));
    if (known == slots_.end() || !targets_[known->second]->is_listed) {
        reason = "there is no such device";
        return false;
    }
    if (admission_.holds(known->second)) {
        reason = "it is being asked already";
        return false;
    }
    targets_[known->second]->answer = std::move(answer);
    make_due(known->second, kind, now());
    return true;
}

// ---- turns --------------------------------------------------------------------------------------

Time Engine::next_pass() {
    Time next = std::min(turns_.next(), deadlines_.next());
    if (!strangers_.empty())
        next = std::min(next, strangers_.begin()->second->accepted + limits_.silence);
    if (admission_.queued() != 0 && !outlet_.has_room()) next = std::min(next, now() + full);
    return next;
}

void Engine::pass() {
    const Time time = now();
    size_t place;
    while (turns_.take(time, place)) take_turn(place / 2, static_cast<Kind>(place % 2), time);
    while (deadlines_.take(time, place)) wake(place);
    while (!strangers_.empty() && strangers_.begin()->second->accepted + limits_.silence <= time)
        turn_away(*strangers_.begin()->second);
    start_runs();
}

void Engine::take_turn(size_t slot, Kind kind, Time time) {
    // A self-test comes seldom: it waits for the end of a collection.
    if (kind == Kind::selftest && admission_.holds(slot))
        return turns_.set(place_of(slot, kind), time + busy);
    if (targets_[slot]->is_listed) make_due(slot, kind, time);
    plan(slot, kind, time);
}

void Engine::make_due(size_t slot, Kind kind, Time due) {
    if (admission_.holds(slot)) {
        ++statistics_.overlaps;
        return;
    }
    Target &target = *targets_[slot];
    target.due = due;
    target.due_kind = kind;
    admission_.add(slot, target.device.ip, target.failures > 1);
}

void Engine::start_runs() {
    if (admission_.queued() == 0) return;
    if (!outlet_.has_room()) {
        ++statistics_.held_back;
        return;
    }
    size_t slot;
    while (admission_.take(slot)) begin(slot);
}

void Engine::begin(size_t slot) {
    Target &target = *targets_[slot];
    target.run = std::make_unique<Run>();
    target.run->token = tokens_.draw();
    target.run->endpoint = {target.device.ip, target.device.port};
    tokens_open_[target.run->token] = slot;
    endpoints_open_[target.run->endpoint] = slot;
    target.run->sent = now();
    statistics_.lateness.add(target.run->sent - target.due);
    send_command(slot);
}

void Engine::send_command(size_t slot) {
    const Target &target = *targets_[slot];
    Run &run = *target.run;
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
void Engine::wake(size_t slot) {
    if (!targets_[slot]->run) return;
    Run &run = *targets_[slot]->run;
    const Time time = now();
    const bool is_late = time >= run.sent + limits_.run;
    const bool is_silent = time >= (run.connection ? run.heard : run.sent) + limits_.silence;
    if (!run.connection && (is_late || is_silent))
        return end(slot, Outcome::unanswered, "no connection came");
    if (is_late) return end(slot, Outcome::too_long, fmt::format("took {} s", limits_.run.count()));
    if (is_silent)
        return end(slot, Outcome::silent,
                   fmt::format("silent for {} s after {} messages", limits_.silence.count(),
                               run.connection->intake.totals().messages));
    if (run.connection || time < run.resend) return set_deadline(slot);
    ++run.resends;
    ++statistics_.resends;
    send_command(slot);
}

// ---- connections --------------------------------------------------------------------------------

void Engine::accept_all() {
    for (;;) {
        sockaddr_in peer{};
        dtctl::Fd socket = dtctl::accept_from(listener_, peer);
        if (!socket) return; // none left, or no descriptor: the next pass tries again
        auto connection = std::make_unique<Connection>(std::move(socket), peer, limits_);
        Connection &added = *connection;
        added.number = loop_.add(added.socket.get(), [this, &added] { receive(added); });
        strangers_.emplace(added.number, std::move(connection));
        if (strangers_.size() > most_strangers) turn_away(*strangers_.begin()->second);
    }
}

void Engine::turn_away(Connection &connection) {
    ++statistics_.strangers;
    loop_.remove(connection.number, connection.socket.get());
    strangers_.erase(connection.number);
}

void Engine::receive(Connection &connection) {
    std::array<uint8_t, 16'384> buffer;
    const ssize_t count = ::recv(connection.socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && (dtctl::would_block(errno) || errno == EINTR)) return;
    const std::string why = count < 0 ? std::strerror(errno) : "";
    if (count > 0 && take_bytes(connection, std::span(buffer).first(static_cast<size_t>(count))))
        return;
    if (!connection.slot) return turn_away(connection);
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
    run.connection = std::move(strangers_.extract(connection.number).mapped());
    connection.slot = slot;
    run.opening = run.heard = now();
    run.opened = wall_microseconds();
    admission_.connected(slot);
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
    record.samples = connection.intake.take_samples();
    return record;
}

void Engine::end(size_t slot, Outcome outcome, std::string reason) {
    Target &target = *targets_[slot];
    RunRecord record = record_of(slot, outcome, std::move(reason));
    ++statistics_.runs[static_cast<size_t>(outcome)];
    statistics_.values += record.samples.list.size();
    statistics_.bytes += record.bytes;
    if (is_whole(outcome)) {
        admission_.window().went_well();
        statistics_.to_end.add(now() - target.run->opening);
    }
    tokens_open_.erase(target.run->token);
    endpoints_open_.erase(target.run->endpoint);
    deadlines_.clear(slot);
    if (const auto &connection = target.run->connection)
        loop_.remove(connection->number, connection->socket.get());
    target.run.reset();
    admission_.ended(slot);
    settle(target, record);
    plan(slot, Kind::collection, now());
    outlet_.put(std::move(record));
}

void Engine::settle(Target &target, const RunRecord &record) {
    target.failures = is_whole(record.outcome) ? 0 : target.failures + 1;
    if (const Answer answer = std::exchange(target.answer, nullptr)) answer(record);
}

void Engine::stop() {
    for (size_t slot = 0; slot < targets_.size(); ++slot)
        if (targets_[slot]->run) end(slot, Outcome::stopped, "the service stopped");
}

} // namespace dtfleet
