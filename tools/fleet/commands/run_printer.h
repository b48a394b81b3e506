// Runs as lines of JSON on standard output.
#pragma once

#include "fleet/engine/engine.h"

namespace dtfleet {

class RunPrinter final : public Outlet {
public:
    // Whether the reader keeps up: a pipe that is full lets no run begin.
    bool has_room() const override;
    void put(RunRecord run) override;

    bool failed() const { return failed_; }

private:
    bool failed_ = false;
};

// A run as one object: what is known of it, and its values in the order of their arrival.
std::string line_of(const RunRecord &run);

} // namespace dtfleet
