// The two ways by which runs go into the database, each with a connection of its own. Devices are
// dealt out to them, so what one of them stores says nothing of the other's devices.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/series_rows.h"
#include "fleet/store/series.h"

#include <array>
#include <span>
#include <string>
#include <vector>

namespace dtfleet::postgres {

class Lane {
public:
    explicit Lane(const std::string &address)
        : connection_(address), rows_(connection_), series_(rows_) {}

    using Runs = std::span<const RunRecord *const>;

    // Stores them in their order, some in a transaction. Where it throws, some may be stored.
    // looks_for_runs: some are stored already, perhaps.
    void write(Runs runs, bool looks_for_runs);

    // What keys mean, of series that are made from now on.
    void learn(const std::vector<SeriesMeaning> &meanings) { series_.learn(meanings); }

private:
    void write_some(Runs runs, bool looks);
    void prepare_stage();
    void write_once(Runs runs, bool looks);

    Connection connection_;
    PostgresSeries rows_;
    SeriesTable series_;
    uint64_t stage_session_ = 0; // that has the stage,
    size_t staged_bytes_ = 0;    // and what went over it since it was swept
};

// While one moves what it has staged, which is done by one at a time, the other makes ready.
class Lanes {
public:
    explicit Lanes(const std::string &address) : lanes_{Lane(address), Lane(address)} {}

    // A device's runs go in their order, and always by the same lane. Where it throws, some may be
    // stored.
    void write(std::span<const RunRecord> runs);

    void learn(const std::vector<SeriesMeaning> &meanings);

private:
    void write(const std::array<std::vector<const RunRecord *>, 2> &parts, bool looks_for_runs);

    std::array<Lane, 2> lanes_;
    size_t tried_ = 0; // of the runs that come next
};

} // namespace dtfleet::postgres
