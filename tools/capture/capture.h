// Files of captured frames.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace dtctl {

struct Frame {
    int link;                       // LinkType, or another
    int64_t time;                   // microseconds since 1970
    std::span<const uint8_t> bytes; // what was captured of it
};

// Reads a capture ("-": standard input) frame by frame. Throws Failure when it cannot be read, is
// no capture or stops short, after all frames before that; and at once where the program was built
// without libpcap.
void read_capture(const std::string &path, const std::function<void(const Frame &)> &take);

} // namespace dtctl
