// Sends commands to devices, and hears when the network says that one is not there.
#pragma once

#include "host/fd.h"

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <utility>

namespace dtfleet {

struct Endpoint {
    in_addr_t ip = 0; // network order
    uint16_t port = 0;
    friend auto operator<=>(const Endpoint &, const Endpoint &) = default;
};

class Commander {
public:
    // Throws dtctl::Failure when there is no socket to be had.
    Commander();

    int fd() const { return socket_.get(); }

    // Otherwise a broadcast address is refused: no device of an inventory has one.
    void allow_broadcast();

    // Asks a device to connect back to that port with that token. False, with errno, when it could
    // not even be sent; what the network holds up counts as sent.
    bool send(const Endpoint &device, uint32_t command, uint32_t token, uint16_t port);

    // A device that a message could not reach, and why (an errno); nothing when there are no more.
    std::optional<std::pair<Endpoint, int>> next_refusal();

private:
    dtctl::Fd socket_;
};

} // namespace dtfleet
