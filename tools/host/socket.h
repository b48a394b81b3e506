// The few socket calls that the programs need, IPv4 only. All of them throw Failure.
#pragma once

#include "host/fd.h"
#include "host/time.h"

#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace dtctl {

// The first IPv4 address of a name or of a dotted address: four decimal numbers, and none of the
// other ways to write one ("127.1", "0x7f.0.0.1").
sockaddr_in resolve(const std::string &host, uint16_t port);

std::string address_text(const sockaddr_in &address);

// Listens for TCP on every local address; port 0: any free one. The descriptor does not block.
// backlog: how many connections may wait to be accepted.
Fd listen_on(uint16_t port, int backlog = 4);

// The port that a socket is bound to.
uint16_t local_port(const Fd &fd);

// A UDP socket that talks with one peer only, and so hears when that peer refuses.
Fd connect_udp(const sockaddr_in &peer);

// A UDP socket that hears whoever sends to a local address; port 0: any free one.
Fd bind_udp(const std::string &host, uint16_t port);

// Whether an error says no more than "not yet".
bool would_block(int error);

// Takes a waiting connection; none: an empty Fd.
Fd accept_from(const Fd &listener, sockaddr_in &peer);

// Waits for a descriptor to become ready (POLLIN or POLLOUT); false when the time has passed.
bool wait_for(const Fd &fd, short events, Clock::time_point until);

} // namespace dtctl
