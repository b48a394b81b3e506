#include "capture/packet.h"

#include <algorithm>

namespace dtctl {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr unsigned ipv4_type = 0x0800;
constexpr uint8_t tcp_protocol = 6;
constexpr size_t ip_header = 20;
constexpr size_t tcp_header = 20;

uint16_t word_at(Bytes bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

uint32_t long_at(Bytes bytes, size_t at) {
    return uint32_t{word_at(bytes, at)} << 16 | word_at(bytes, at + 2);
}

Bytes behind(Bytes bytes, size_t size) { return bytes.subspan(std::min(size, bytes.size())); }

// What follows a header of some size, with the packet's type at an offset; nothing unless IPv4.
Bytes if_ipv4(Bytes frame, size_t header, size_t type_at) {
    if (frame.size() < header || word_at(frame, type_at) != ipv4_type) return {};
    return frame.subspan(header);
}

bool is_vlan(unsigned type) { return type == 0x8100 || type == 0x88A8; }

Bytes in_ethernet(Bytes frame) {
    size_t type_at = 12;
    while (frame.size() >= type_at + 6 && is_vlan(word_at(frame, type_at))) type_at += 4;
    return if_ipv4(frame, type_at + 2, type_at);
}

// IPv4 is family 2 everywhere, in either byte order.
Bytes in_loopback(Bytes frame) {
    if (frame.size() < 4 || (frame[0] | frame[3]) != 2 || (frame[1] | frame[2]) != 0) return {};
    return frame.subspan(4);
}

Bytes ip_packet(int link, Bytes frame) {
    switch (link) {
    case link_null:
    case link_loop:
        return in_loopback(frame);
    case link_ethernet:
        return in_ethernet(frame);
    case link_linux:
        return if_ipv4(frame, 16, 14);
    case link_linux_2:
        return if_ipv4(frame, 20, 0);
    default:
        return is_known_link(link) ? frame : Bytes();
    }
}

// The payload, without what pads a short frame. A length of 0 is left to the network card.
Bytes tcp_in(Bytes packet) {
    if (packet.size() < ip_header || packet[0] >> 4 != 4) return {};
    const size_t header = size_t{4} * (packet[0] & 0x0F);
    const size_t total = word_at(packet, 2);
    const bool fragment = (word_at(packet, 6) & 0x3FFF) != 0;
    if (header < ip_header || fragment || packet[9] != tcp_protocol) return {};
    if (total != 0) packet = packet.first(std::min(total, packet.size()));
    return behind(packet, header);
}

} // namespace

bool is_known_link(int type) {
    constexpr int types[] = {link_null, link_ethernet, link_raw,  link_raw_too,
                             link_loop, link_linux,    link_ipv4, link_linux_2};
    return std::ranges::find(types, type) != std::end(types);
}

std::optional<Segment> segment_of(int link, Bytes frame) {
    const Bytes packet = ip_packet(link, frame);
    const Bytes tcp = tcp_in(packet);
    if (tcp.size() < tcp_header) return std::nullopt;
    const size_t header = size_t{4} * (tcp[12] >> 4);
    const unsigned flags = tcp[13];
    if (header < tcp_header) return std::nullopt;
    return Segment{{long_at(packet, 12), long_at(packet, 16), word_at(tcp, 0), word_at(tcp, 2)},
                   long_at(tcp, 4),
                   (flags & 0x12) == 0x02,
                   (flags & 0x01) != 0,
                   (flags & 0x04) != 0,
                   behind(tcp, header)};
}

} // namespace dtctl
