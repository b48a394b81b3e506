#include "fleet/engine/discover.h"

#include "fleet/engine/commander.h"
#include "fleet/engine/identities.h"
#include "fleet/engine/reception.h"
#include "fleet/engine/tokens.h"
#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>

namespace dtfleet {
namespace {

// All of them answer at once.
Limits roomy() {
    Limits limits;
    limits.waiting = 10'000;
    return limits;
}

class Discovery {
public:
    Discovery(const std::string &broadcast, uint16_t port)
        : to_(dtctl::resolve(broadcast, port)),
          reception_(0, limits_, loop_, statistics_,
                     [this](Connection &connection) { hear(connection); }) {
        commander_.allow_broadcast();
    }

    // Twice, since a datagram may get lost: who has answered already is let go again.
    void run(Time how_long) {
        const Time begin = now();
        call();
        listen(begin + how_long / 2);
        call();
        listen(begin + how_long);
    }

    std::vector<Found> found() const {
        std::vector<Found> list;
        for (const auto &[ip, device] : devices_) list.push_back(device);
        return list;
    }

private:
    void call() {
        const Endpoint all{to_.sin_addr.s_addr, ntohs(to_.sin_port)};
        if (!commander_.send(all, 0, token_, reception_.port()))
            throw dtctl::Failure(
                dtctl::Exit::unreachable,
                fmt::format("{}: {}", dtctl::address_text(to_), std::strerror(errno)));
    }

    void listen(Time until) {
        while (now() < until) {
            loop_.wait(std::min(until, reception_.next_pass()));
            reception_.pass(now());
        }
    }

    void hear(Connection &connection) {
        std::array<uint8_t, 2048> bytes;
        const ssize_t count = ::recv(connection.socket.get(), bytes.data(), bytes.size(), 0);
        if (count < 0 && (dtctl::would_block(errno) || errno == EINTR)) return;
        const auto size = static_cast<size_t>(std::max<ssize_t>(count, 0));
        const bool good = connection.intake.feed(std::span(bytes).first(size));
        const auto &opening = connection.intake.opening();
        if (opening && opening->sequence == token_) note(connection.peer, opening->identity);
        if (opening || !good || count <= 0) reception_.turn_away(connection);
    }

    void note(const sockaddr_in &peer, const std::array<uint8_t, 2> &identity) {
        devices_[ntohl(peer.sin_addr.s_addr)] = {
            dtctl::address_text(peer), static_cast<uint16_t>(identity[0] << 8 | identity[1])};
    }

    const uint32_t token_ = Tokens().draw();
    const Limits limits_ = roomy();
    sockaddr_in to_;
    Statistics statistics_;
    Commander commander_;
    Loop loop_;
    Reception reception_;
    std::map<uint32_t, Found> devices_; // by address
};

} // namespace

std::vector<Found> discover(const std::string &broadcast, uint16_t port, Time how_long) {
    Discovery discovery(broadcast, port);
    discovery.run(how_long);
    return discovery.found();
}

std::string inventory_of(const std::vector<Found> &found, uint16_t port) {
    std::string text;
    std::map<uint16_t, std::string> owners;
    for (const Found &device : found) {
        const auto [owner, is_new] = owners.emplace(device.identity, device.address);
        text += fmt::format("[[device]]\nname = \"{0}\"\naddress = \"{0}\"\nport = {1}\n"
                            "identity = 0x{2}{3}\n\n",
                            device.address, port, identity_text(device.identity),
                            is_new ? "" : " # as " + owner->second + " has it");
    }
    return text;
}

} // namespace dtfleet
