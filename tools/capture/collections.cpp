#include "capture/collections.h"

#include "capture/capture.h"
#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <arpa/inet.h>

namespace dtctl {
namespace {

void take_frame(const Frame &frame, Streams &streams) {
    if (!is_known_link(frame.link)) {
        throw Failure(Exit::broken,
                      fmt::format("frames of link type {}, which is not known here", frame.link));
    }
    if (const auto segment = segment_of(frame.link, frame.bytes))
        streams.take(*segment, frame.time);
}

} // namespace

void read_collections(const std::string &path, size_t max_value, const Streams::Done &done) {
    Streams streams(max_value, done);
    try {
        read_capture(path, [&](const Frame &frame) { take_frame(frame, streams); });
    } catch (const Failure &) {
        streams.end();
        throw;
    }
    streams.end();
}

std::string sender_of(const Collected &collected) {
    sockaddr_in socket{};
    socket.sin_addr.s_addr = htonl(collected.flow.source);
    return address_text(socket);
}

} // namespace dtctl
