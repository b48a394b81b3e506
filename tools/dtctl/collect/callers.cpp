#include "dtctl/collect/callers.h"

#include "decode/wire.h"

#include <fmt/format.h>

#include <sys/socket.h>

#include <array>
#include <utility>

namespace dtctl {
namespace {

namespace wire = dt::decode::wire;

// The latest are kept, so that those who say nothing keep nobody out.
constexpr size_t max_waiting = 16;

// Is ready to be read when so many bytes are there, or none can follow.
void set_low_water(const Fd &connection, int bytes) {
    (void)::setsockopt(connection.get(), SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof(bytes));
}

} // namespace

Callers::Callers(uint16_t port, const Device &device, Progress &progress)
    : device_(device), progress_(progress), listener_(listen_on(port)) {}

std::vector<pollfd> Callers::entries() const {
    std::vector<pollfd> entries{{listener_.get(), POLLIN, 0}};
    for (const Caller &caller : waiting_) entries.push_back({caller.connection.get(), POLLIN, 0});
    return entries;
}

Caller Callers::choose(std::span<const pollfd> polled) {
    if (Caller device = choose_by_number(polled.subspan(1)); device.connection) return device;
    Caller caller;
    caller.connection = accept_from(listener_, caller.address);
    if (!caller.connection) return {};
    if (device_.has_other_addresses) {
        set_low_water(caller.connection, wire::header_size);
        if (waiting_.size() == max_waiting) waiting_.erase(waiting_.begin());
        waiting_.push_back(std::move(caller));
        return {};
    }
    if (caller.address.sin_addr.s_addr == device_.address.sin_addr.s_addr) return caller;
    turn_away(caller, "not the device (see --any-address)");
    return {};
}

Caller Callers::choose_by_number(std::span<const pollfd> polled) {
    for (size_t i = polled.size(); i-- > 0;) {
        if (polled[i].revents == 0) continue;
        Caller caller = std::move(waiting_[i]);
        waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(i));
        if (is_expected(caller)) {
            set_low_water(caller.connection, 1);
            return caller;
        }
        turn_away(caller, "its first message is no answer to this command");
    }
    return {};
}

bool Callers::is_expected(const Caller &caller) const {
    const auto expected = wire::packed<3>(
        {wire::header_size + wire::opening_size, wire::opening_type, device_.number});
    auto header = decltype(expected){};
    const ssize_t count =
        ::recv(caller.connection.get(), header.data(), header.size(), MSG_PEEK | MSG_DONTWAIT);
    return count == static_cast<ssize_t>(header.size()) && header == expected;
}

void Callers::turn_away(const Caller &caller, const char *reason) {
    progress_.note(fmt::format("a connection from {} was turned away: {}",
                               address_text(caller.address), reason));
}

} // namespace dtctl
