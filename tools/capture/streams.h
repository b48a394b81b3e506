// Puts the bytes that devices sent in collections together again, from TCP segments as captured:
// repeated, overlapping, out of order, or missing.
#pragma once

#include "capture/packet.h"
#include "decode/decoder.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace dtctl {

// What one device sent on one connection. Times are microseconds since 1970.
struct Collected {
    Flow flow{};
    int64_t begun = 0;
    int64_t opened = 0; // the opening message had arrived
    int64_t ended = 0;  // the last segment came
    std::string bytes;
    bool closed = false;     // in order, by the device
    bool reset = false;      // broken off, by either side
    bool incomplete = false; // the capture lacks what follows, though more came
};

class Streams {
public:
    using Done = std::function<void(const Collected &)>;

    // done gets each collection when its connection ends. Of one with a longer value than max_value
    // bytes, or that breaks its format otherwise, nothing behind the break is kept.
    Streams(size_t max_value, Done done) : max_value_(max_value), done_(std::move(done)) {}

    // A connection is a collection when its first bytes are those of an opening message; of any
    // other nothing is kept. One whose beginning was not captured begins at such bytes.
    void take(const Segment &segment, int64_t when);

    // The capture has ended, and with it all that is open.
    void end();

private:
    // Decodes for nothing but to know where the format breaks.
    struct Check {
        explicit Check(size_t max_value) : decoder(sink, max_value) {}
        dt::decode::Sink sink;
        dt::decode::Decoder decoder;
    };

    struct Open {
        Collected collected;
        uint32_t first = 0;                    // the sequence number of the first byte
        std::map<uint64_t, std::string> early; // by position, behind a gap
        size_t early_size = 0;
        std::optional<uint64_t> end; // the position behind the last byte
        uint64_t number = 0;         // in the order of beginning
        std::unique_ptr<Check> check;
    };
    using Streamed = std::map<Flow, Open>;

    void begin(const Segment &segment, int64_t when);
    void finish(const Flow &flow, bool reset = false);
    bool breaks(Open &open) const;
    static void add(Open &open, const Segment &segment);

    size_t max_value_;
    Done done_;
    Streamed open_;
    std::map<Flow, uint32_t> ended_; // and its first sequence number
    uint64_t begun_ = 0;
};

} // namespace dtctl
