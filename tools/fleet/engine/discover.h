// Who is there: one command to a broadcast address makes every device connect back and say who it
// is.
#pragma once

#include "fleet/engine/time.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dtfleet {

struct Found {
    std::string address;
    uint16_t identity = 0;
};

// Asks all devices behind that address and UDP port, and listens for so long, on a port of its own;
// each is let go once it has said who it is. By address, each once. Nobody else may ask them
// meanwhile: a running service is told first. Throws dtctl::Failure.
std::vector<Found> discover(const std::string &broadcast, uint16_t port, Time how_long);

// An inventory of them, for whoever goes on to give them names.
std::string inventory_of(const std::vector<Found> &found, uint16_t port);

} // namespace dtfleet
