// A captured frame, down to the TCP segment in it.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace dtctl {

// What a frame begins with; the numbers are those of capture files.
enum LinkType : int {
    link_null = 0, // the address family, in the byte order of who captured
    link_ethernet = 1,
    link_raw = 12, // nothing but IP
    link_raw_too = 101,
    link_loop = 108, // the address family in network order
    link_linux = 113,
    link_ipv4 = 228,
    link_linux_2 = 276,
};

bool is_known_link(int type);

// One direction of a connection, in host byte order.
struct Flow {
    uint32_t source, target;
    uint16_t source_port, target_port;

    Flow reversed() const { return {target, source, target_port, source_port}; }
    auto operator<=>(const Flow &) const = default;
};

struct Segment {
    Flow flow{};
    uint32_t sequence = 0;
    bool begins = false; // a first segment: SYN without ACK
    bool ends = false;   // FIN
    bool breaks = false; // RST
    std::span<const uint8_t> payload;
};

// The segment, if the frame holds one of TCP over IPv4 that is no fragment. What was not captured
// of a payload is missing at its end.
std::optional<Segment> segment_of(int link, std::span<const uint8_t> frame);

} // namespace dtctl
