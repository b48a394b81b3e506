#include "fleet/engine/reception.h"

#include "host/failure.h"
#include "host/socket.h"

#include <cerrno>

namespace dtfleet {
namespace {

constexpr int backlog = 4096;          // the system may allow fewer
constexpr size_t at_once = 1024;       // accepted, before others have their turn
constexpr size_t most_strangers = 256; // besides the devices that are waited for
constexpr Time rest = Seconds(1) / 10; // until a descriptor may be free again

// Of one connection, not of the port: the next one may be good.
bool concerns_one(int error) {
    return error == EINTR || error == ECONNABORTED || error == EPROTO || error == EPERM ||
           error == ENETDOWN || error == EHOSTDOWN || error == EHOSTUNREACH ||
           error == ENETUNREACH || error == ENONET || error == ENOPROTOOPT || error == EOPNOTSUPP;
}

} // namespace

Reception::Reception(uint16_t port, const Limits &limits, Loop &loop, Statistics &statistics,
                     Ready ready)
    : limits_(limits), loop_(loop), statistics_(statistics), ready_(std::move(ready)),
      listener_(dtctl::listen_on(port, backlog)) {
    number_ = loop_.add(listener_.get(), [this] { accept_all(); });
}

Reception::~Reception() {
    for (const auto &[number, stranger] : strangers_) loop_.remove(number, stranger->socket.get());
    loop_.remove(number_, listener_.get());
}

uint16_t Reception::port() const { return dtctl::local_port(listener_); }

void Reception::accept_all() {
    behind_ = true;
    if (resting_until_ != Time(0)) return;
    for (size_t i = 0; i < at_once; ++i)
        if (!greet()) return;
}

// False when there is nobody to greet, or nothing to greet with.
bool Reception::greet() {
    sockaddr_in peer{};
    dtctl::Fd socket = dtctl::accept_from(listener_, peer);
    if (!socket && concerns_one(errno)) return true;
    if (!socket) {
        behind_ = !dtctl::would_block(errno);
        if (behind_) take_break();
        return false;
    }
    auto connection = std::make_unique<Connection>(std::move(socket), peer, limits_);
    Connection &added = *connection;
    try {
        added.number = loop_.add(added.socket.get(), [this, &added] { ready_(added); });
    } catch (const dtctl::Failure &) {
        take_break();
        return false;
    }
    strangers_.emplace(added.number, std::move(connection));
    ready_(added); // the opening is mostly there already
    if (strangers_.size() > limits_.waiting + most_strangers)
        turn_away(*strangers_.begin()->second);
    return true;
}

// Without a descriptor for it, or memory, a connection stays in the queue, and the port would be
// called ready again at once and for ever.
void Reception::take_break() {
    ++statistics_.no_descriptor;
    resting_until_ = now() + rest;
    loop_.watch(number_, listener_.get(), false, false);
}

std::unique_ptr<Connection> Reception::take(const Connection &connection) {
    return std::move(strangers_.extract(connection.number).mapped());
}

void Reception::turn_away(const Connection &connection) {
    if (!connection.intake.opening()) ++statistics_.strangers;
    loop_.remove(connection.number, connection.socket.get());
    strangers_.erase(uint64_t{connection.number});
}

Time Reception::next_pass() const {
    Time next = resting_until_ != Time(0) ? resting_until_ : Time::max();
    if (!strangers_.empty())
        next = std::min<Time>(next, strangers_.begin()->second->accepted + limits_.silence);
    return next;
}

void Reception::pass(Time time) {
    while (!strangers_.empty() && strangers_.begin()->second->accepted + limits_.silence <= time)
        turn_away(*strangers_.begin()->second);
    if (resting_until_ == Time(0) || time < resting_until_) return;
    resting_until_ = Time(0);
    loop_.watch(number_, listener_.get(), true, false);
    accept_all();
}

} // namespace dtfleet
