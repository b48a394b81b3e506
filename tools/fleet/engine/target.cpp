#include "fleet/engine/target.h"

#include <sys/random.h>

namespace dtfleet {

// The time goes first: then the index of all runs grows at its end, and not everywhere at once.
RunId new_id(Microseconds begun) {
    RunId id;
    while (::getrandom(id.data(), id.size(), 0) != static_cast<ssize_t>(id.size())) {
    }
    for (unsigned i = 0; i < 6; ++i)
        id[i] = static_cast<uint8_t>(begun / 1000 >> (40 - 8 * i)); // milliseconds
    return id;
}

} // namespace dtfleet
