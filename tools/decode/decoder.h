// Decodes what a device sends on one collection connection.
#pragma once

#include "decode/events.h"
#include "decode/reader.h"
#include "decode/wire.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace dt::decode {

// What has been understood so far.
struct Totals {
    uint64_t messages = 0; // complete and well-formed
    uint64_t values = 0;   // complete; a collector's name in a self-test run is no value
    uint64_t bytes = 0;    // taken from the stream, those of unfinished messages included
};

// A message's number, 1 for the first that arrived on the connection, and a byte within it, 0 for
// the first one of its header.
struct Position {
    uint64_t message;
    size_t offset;
};

inline constexpr size_t default_max_value = size_t{64} * 1024 * 1024;

// A run is an opening message, at most one directory directly behind it, data messages, and an
// empty data message as its end. The decoder checks all of that, and every size and tag inside.
// Values reach the sink as they complete, so what came before a break has been delivered and
// stays valid.
//
// Memory: one message, the directory, and the pieces received of the one value that is open, which
// breaks the format when they exceed the largest value.
// No input makes it throw; running out of memory and the sink's own exceptions pass through.
class Decoder {
public:
    // sink must outlive the decoder. max_value: bytes in the longest string or buffer.
    explicit Decoder(Sink &sink, size_t max_value = default_max_value)
        : sink_(sink), max_value_(max_value) {}

    // Takes the next bytes of the stream; how the stream is cut into calls makes no difference.
    // Returns false once the format is broken; bytes behind the break are ignored.
    bool feed(std::span<const uint8_t> bytes);

    // Says that the stream has ended. Returns true for a whole run. Otherwise broken() tells what
    // is missing: a stream that ends inside a message breaks at the first byte that did not come,
    // a value left open at its last piece, a run without end at the message that did not come.
    bool finish();

    // The first and only break; empty while all is well.
    const std::optional<Break> &broken() const { return broken_; }

    const Totals &totals() const { return totals_; }

    // Where the next byte of the stream belongs.
    Position position() const { return here(held_); }

    // The opening message, once it has arrived.
    const std::optional<Opening> &opening() const { return opening_; }

private:
    size_t take(std::span<const uint8_t> bytes);
    bool check_header();
    bool check_order(uint32_t type);
    bool read_payload();
    bool read_opening(Reader &payload);
    bool read_directory(Reader &payload);
    bool read_data(Reader &payload);
    bool read_frame(Reader &payload);
    bool check_tag(uint8_t tag, size_t at);
    bool accept(Value value, bool complete, size_t at);
    void deliver(Value value);
    std::optional<std::string> name_of(uint32_t index) const;
    Position here(size_t offset) const { return {totals_.messages + 1, offset}; }
    bool fail(size_t offset, std::string reason) { return fail(here(offset), std::move(reason)); }
    bool fail(Position where, std::string reason);

    Sink &sink_;
    size_t max_value_;
    Totals totals_;
    std::optional<Break> broken_;

    // The message that is being received.
    std::array<uint8_t, wire::max_message_size> message_{};
    size_t held_ = 0;
    size_t wanted_ = wire::header_size; // held_ bytes to go on: first a header, then all of it
    uint32_t type_ = 0;
    uint32_t sequence_ = 0;

    // The run.
    std::optional<Opening> opening_;
    std::optional<std::map<uint32_t, std::string>> directory_; // empty without a directory message
    std::optional<std::string> tested_;                        // the collector under self-test
    bool at_end_ = false; // the last message was an empty data message

    // The value whose pieces are arriving, and its last piece.
    std::optional<Value> open_;
    Position open_at_{};
};

} // namespace dt::decode
