// What one run brought, on its way from the engine to the store.
#pragma once

#include "decode/events.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

// Made at a run's start; it makes a run that is delivered twice one run.
using RunId = std::array<uint8_t, 16>;

// Of the wall clock, since 1970.
using Microseconds = int64_t;

enum class Kind : uint8_t { collection, selftest };

// How a run ended. The numbers stand in databases.
enum class Outcome : uint8_t {
    whole = 0,      // closed in order after the empty data message
    unanswered = 1, // no connection came
    refused = 2,    // the network says that nobody is there
    silent = 3,     // connected, then nothing for too long
    too_long = 4,   // longer than a run may take
    too_large = 5,  // more than a run may bring
    reset = 6,      // the connection broke
    malformed = 7,  // what came breaks the format, or stops short of the end
    stopped = 8,    // this service stopped
};
constexpr size_t outcomes = 9;

constexpr bool is_whole(Outcome outcome) { return outcome == Outcome::whole; }

// One word for each, as users read it: "whole", "unanswered", ...
const char *text_of(Outcome outcome);

std::string id_text(const RunId &id); // 32 hex digits

// One value of a run. Small: ten thousand runs may be open at a time.
struct Sample {
    uint64_t number = 0; // int32 (zero-extended), int64; string, buffer: the first byte's offset
    uint32_t size = 0;   // string, buffer: bytes
    uint32_t section = 0;
    uint32_t key = 0;
    uint16_t collector = 0; // its place in Samples::collectors
    dt::decode::Kind kind = dt::decode::Kind::int32;
};
static_assert(sizeof(Sample) <= 24);

constexpr bool is_number(dt::decode::Kind kind) {
    return kind == dt::decode::Kind::int32 || kind == dt::decode::Kind::int64;
}

// The values of a run in the order of their arrival.
struct Samples {
    std::vector<Sample> list;
    std::string bytes;                   // of all strings and buffers, back to back
    std::vector<std::string> collectors; // names as the device sent them; "#7" for a number without

    std::string_view bytes_of(const Sample &sample) const {
        return std::string_view(bytes).substr(sample.number, sample.size);
    }
};

// Under which right a device was asked, where collectors share a database.
struct LeaseMark {
    int64_t epoch = 0;    // of the lease; 0: there was none
    Microseconds due = 0; // when it is to be asked next, by the database's clock; 0: as it is
    bool keeps = false;   // the lease goes on
};

struct RunRecord {
    RunId id{};
    std::string device; // the inventory's name
    Kind kind = Kind::collection;
    uint32_t command = 0;
    bool keeps_all = false; // store each value, not only what changed
    bool imported = false;  // does not tell how the device is now, when it is older than what does
    Outcome outcome = Outcome::unanswered;
    std::string reason;               // one line, empty for a whole run
    std::optional<uint16_t> identity; // first byte high
    std::string address;              // that it connected from; empty: it did not
    Microseconds time = 0;   // the opening's arrival or, without one, the first command's sending
    uint32_t to_connect = 0; // microseconds from the first command to the connection,
    uint32_t to_opening = 0; // from there to the opening message,
    uint32_t to_end = 0;     // and from there to the end; 0 for what was not reached
    uint32_t resends = 0;
    uint32_t messages = 0;
    uint64_t bytes = 0;
    LeaseMark lease;
    Samples samples;
};

} // namespace dtfleet
