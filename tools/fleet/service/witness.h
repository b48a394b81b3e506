// Sees each run on its way from the engine to the store, and tells the operator what matters.
#pragma once

#include "fleet/engine/identities.h"
#include "fleet/engine/journal.h"
#include "fleet/store/outlet.h"

#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

class Witness final : public Outlet {
public:
    Witness(Outlet &outlet, Journal &journal) : outlet_(outlet), journal_(journal) {}

    bool has_room() const override { return outlet_.has_room(); }
    void put(RunRecord run) override;

    Troubles &troubles() { return troubles_; }
    Identities &identities() { return identities_; }

    // While the store renames a device its runs stay here: under either name they could make it a
    // device of their own.
    void hold(const std::string &device) { held_device_ = device; }
    bool is_holding() const { return held_device_.has_value(); }

    // They go on, under that name.
    void release(const std::string &name);

private:
    Outlet &outlet_;
    Journal &journal_;
    Troubles troubles_{journal_};
    Identities identities_;
    std::optional<std::string> held_device_;
    std::vector<RunRecord> held_;
};

} // namespace dtfleet
