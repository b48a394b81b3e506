// What the engine knows of each device, and of its run. For the engine's own sources.
#pragma once

#include "fleet/engine/engine.h"

namespace dtfleet {

// Of a slot in the agenda of turns: one for each kind, and one to try again.
constexpr size_t places = 3;
constexpr size_t place_of(size_t slot, Kind kind) {
    return places * slot + static_cast<size_t>(kind);
}
constexpr size_t place_of_retry(size_t slot) { return places * slot + places - 1; }

inline constexpr Time first_resend = Seconds(1); // and twice as long after each
inline constexpr const char *lease_over = "the lease of the device is over";

RunId new_id(Microseconds begun);

// A device, as long as the process lives: its slot stays its own when it leaves the inventory.
struct Engine::Target {
    Device device;
    bool is_listed = false;
    uint32_t generation = 0; // of the inventory that had it last
    uint32_t failures = 0;   // collections in a row
    Time paused_until{};
    Kind due_kind = Kind::collection; // of the run that waits or is open
    Time due{};
    Answer answer; // of who asked for that run by hand
    std::unique_ptr<Run> run;
};

struct Engine::Run {
    uint32_t token = 0;
    Microseconds begun = wall_microseconds();
    RunId id = new_id(begun);
    Microseconds opened = 0;
    Time sent{}; // the first command
    Time opening{};
    Time resend{};
    Time resend_step = first_resend;
    Time heard{}; // the last byte
    uint32_t resends = 0;
    Endpoint endpoint;
    std::unique_ptr<Connection> connection; // none yet
};

} // namespace dtfleet
