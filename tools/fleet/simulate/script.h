// What a simulated device says in one run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dtfleet {

enum class Manner : uint8_t {
    good,
    dead,     // never answers
    slow,     // waits before each message
    trickle,  // sends a byte at a time
    broken,   // breaks the format in the middle
    stuck,    // stops in the middle, connected
    clashing, // good, with the identity of another
    empty,    // has collectors that put nothing
    logging,  // good, and sends a log that grows
};

struct Script {
    uint32_t device = 0; // its number
    uint32_t turn = 0;   // how many runs it has served
    uint32_t values = 100;
    Manner manner = Manner::good;
};

// The messages of a run, each to be acknowledged before the next is sent.
std::vector<std::string> messages_of(const Script &script, uint32_t token, bool selftest);

} // namespace dtfleet
