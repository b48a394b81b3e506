// Puts the bytes that devices sent in collections together again, from TCP segments as captured:
// repeated, overlapping, out of order, or missing.
#pragma once

#include "dtctl/collect/packet.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace dtctl {

// What one device sent on one connection.
struct Collected {
    Flow flow{};
    std::time_t begun = 0;
    std::string bytes;
    bool incomplete = false; // the capture lacks what follows, though more came
};

class Streams {
public:
    using Done = std::function<void(const Collected &)>;

    // done gets each collection when its connection ends.
    explicit Streams(Done done) : done_(std::move(done)) {}

    // A connection is a collection when its first bytes are those of an opening message; of any
    // other nothing is kept. One whose beginning was not captured begins at such bytes.
    void take(const Segment &segment, std::time_t when);

    // The capture has ended, and with it all that is open.
    void end();

private:
    struct Open {
        Collected collected;
        uint32_t first = 0;                    // the sequence number of the first byte
        std::map<uint64_t, std::string> early; // by position, behind a gap
        size_t early_size = 0;
        std::optional<uint64_t> end; // the position behind the last byte
        uint64_t number = 0;         // in the order of beginning
    };
    using Streamed = std::map<Flow, Open>;

    void begin(const Segment &segment, std::time_t when);
    void finish(const Flow &flow);
    static void add(Open &open, const Segment &segment);

    Done done_;
    Streamed open_;
    std::map<Flow, uint32_t> ended_; // and its first sequence number
    uint64_t begun_ = 0;
};

} // namespace dtctl
