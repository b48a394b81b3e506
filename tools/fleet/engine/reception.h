// The listening port, and who has connected without saying yet whose run it carries.
#pragma once

#include "fleet/engine/loop.h"
#include "fleet/engine/statistics.h"
#include "fleet/store/intake.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace dtfleet {

struct Connection {
    Connection(dtctl::Fd fd, const sockaddr_in &from, const Limits &limits)
        : socket(std::move(fd)), peer(from), accepted(now()), intake(limits) {}

    dtctl::Fd socket;
    uint64_t number = 0; // in the loop
    sockaddr_in peer;
    Time accepted;
    std::optional<size_t> slot; // whose run it carries
    Intake intake;
};

class Reception {
public:
    // Called when a connection has something to read, whether it is taken already or not.
    using Ready = std::function<void(Connection &)>;

    // All of them must outlive it. Throws dtctl::Failure when the port is taken; 0: any free one.
    Reception(uint16_t port, const Limits &limits, Loop &loop, Statistics &statistics, Ready ready);
    ~Reception();
    Reception(const Reception &) = delete;
    Reception &operator=(const Reception &) = delete;

    uint16_t port() const;

    // Accepts who is waiting, and reads what they have sent. More are left when it is behind():
    // then a device that seems not to answer may be among them.
    void accept_all();
    bool behind() const { return behind_; }

    // The opening says whose run it is: no stranger any longer.
    std::unique_ptr<Connection> take(const Connection &connection);

    // Closes a stranger.
    void turn_away(const Connection &connection);

    // When pass() is wanted: to close strangers that stay silent, to accept again.
    Time next_pass() const;
    void pass(Time time);

private:
    bool greet();
    void take_break();

    const Limits &limits_;
    Loop &loop_;
    Statistics &statistics_;
    Ready ready_;
    dtctl::Fd listener_;
    uint64_t number_ = 0; // in the loop
    bool behind_ = false;
    Time resting_until_{}; // no descriptor was left; 0: accepting
    std::map<uint64_t, std::unique_ptr<Connection>> strangers_; // the oldest first
};

} // namespace dtfleet
