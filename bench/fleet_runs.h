// What the benchmarks of the store write: runs of many devices by turns, one a minute of each.
#pragma once

#include "fleet/store/store.h"

#include <endian.h>

#include <cstring>
#include <string>
#include <vector>

namespace fleet {

using Runs = std::vector<dtfleet::RunRecord>;

constexpr uint32_t values_a_run = 100;
constexpr uint64_t runs_a_transaction = 250;

struct Load {
    uint64_t runs = 0;
    uint64_t devices = 0;
    bool keeps_all = false;
};

inline uint64_t scatter(uint64_t number) { return number * 0x9e3779b97f4a7c15U; }

// With keep = "all" another number each time, with "changes" in every tenth run.
inline uint64_t number_of(const Load &load, uint64_t run, uint32_t key) {
    const uint64_t turn = load.keeps_all ? run : (run / load.devices + key) / 10;
    return scatter(turn * values_a_run + key) >> 32;
}

inline dtfleet::RunRecord make_run(const Load &load, uint64_t number) {
    dtfleet::RunRecord run;
    const uint64_t id = htobe64(number); // they grow, as the engine's do
    std::memcpy(run.id.data(), &id, sizeof id);
    run.device = "device " + std::to_string(number % load.devices);
    run.time =
        static_cast<dtfleet::Microseconds>(1'800'000'000 + number / load.devices * 60) * 1'000'000;
    run.keeps_all = load.keeps_all;
    run.outcome = dtfleet::Outcome::whole;
    run.samples.collectors = {"collector"};
    for (uint32_t key = 0; key < values_a_run; ++key) {
        dtfleet::Sample &sample = run.samples.list.emplace_back();
        sample.key = key;
        sample.number = number_of(load, number, key);
    }
    return run;
}

// The runs of the next transaction; `done` counts all that were made.
inline Runs make_runs(const Load &load, uint64_t &done) {
    Runs some;
    for (uint64_t i = 0; i < runs_a_transaction && done < load.runs; ++i)
        some.push_back(make_run(load, done++));
    return some;
}

} // namespace fleet
