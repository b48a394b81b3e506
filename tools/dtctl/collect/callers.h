// Who connects while a device is waited for, and which of them is the device.
#pragma once

#include "dtctl/output/progress.h"
#include "host/socket.h"

#include <poll.h>

#include <cstdint>
#include <span>
#include <vector>

namespace dtctl {

struct Caller {
    Fd connection{}; // empty: nobody
    sockaddr_in address{};
};

class Callers {
public:
    struct Device {
        sockaddr_in address;
        bool has_other_addresses; // then the number of its first message tells it
        uint32_t number;
    };

    // Listens on a TCP port, 0: any free one. Who is turned away is told by progress.
    Callers(uint16_t port, const Device &device, Progress &progress);

    uint16_t port() const { return local_port(listener_); }

    // What to poll for.
    std::vector<pollfd> entries() const;

    // Takes a caller that waits, and says whether one of them is the device. polled: the entries,
    // after the poll.
    Caller choose(std::span<const pollfd> polled);

private:
    Caller choose_by_number(std::span<const pollfd> polled);
    bool is_expected(const Caller &caller) const;
    void turn_away(const Caller &caller, const char *reason);

    Device device_;
    Progress &progress_;
    Fd listener_;
    std::vector<Caller> waiting_; // for the header of their first message
};

} // namespace dtctl
