// Where finished runs go.
#pragma once

#include "fleet/store/record.h"

namespace dtfleet {

// Called from the engine's thread, and must not hold it up.
class Outlet {
public:
    virtual ~Outlet() = default;
    virtual bool has_room() const = 0; // without it no run begins
    virtual void put(RunRecord run) = 0;
};

} // namespace dtfleet
