#include "fleet/store/postgres/lane.h"

#include "fleet/store/postgres/batch.h"
#include "fleet/store/postgres/schema.h"
#include "host/thread.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <thread>

namespace dtfleet::postgres {
namespace {

constexpr int most_attempts = 5;           // when others write runs of the same devices
constexpr size_t most_staged = 16'000'000; // bytes
constexpr size_t runs_a_transaction = 1000;

template <typename Work> std::exception_ptr failure_of(Work work) {
    try {
        work();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

} // namespace

// ---- one lane -----------------------------------------------------------------------------------

void Lane::write(Runs runs, bool looks_for_runs) {
    while (!runs.empty()) {
        const size_t some = std::min(runs.size(), runs_a_transaction);
        write_some(runs.first(some), looks_for_runs);
        runs = runs.subspan(some);
    }
}

void Lane::write_some(Runs runs, bool looks) {
    prepare_stage();
    for (int attempt = 1;; ++attempt) {
        try {
            return write_once(runs, looks);
        } catch (const Conflict &) {
            if (attempt == most_attempts) throw;
            looks = true;
        }
    }
}

void Lane::prepare_stage() {
    connection_.connect();
    if (stage_session_ != connection_.session()) {
        make_stage(connection_);
        staged_bytes_ = 0;
    }
    stage_session_ = connection_.session();
    if (staged_bytes_ > most_staged) {
        sweep_stage(connection_);
        staged_bytes_ = 0;
    }
}

void Lane::write_once(Runs runs, bool looks) {
    Batch batch(connection_, series_, runs, looks);
    batch.store();
    staged_bytes_ += batch.staged_bytes();
}

// ---- both ---------------------------------------------------------------------------------------

// A fresh run is not stored yet; of one that has been tried, and of imports, nobody knows.
void Lanes::write(std::span<const RunRecord> runs) {
    std::array<std::vector<const RunRecord *>, 2> parts;
    for (const RunRecord &run : runs)
        parts[std::hash<std::string>()(run.device) % parts.size()].push_back(&run);
    const auto is_imported = [](const RunRecord &run) { return run.imported; };
    const bool looks = tried_ > 0 || std::any_of(runs.begin(), runs.end(), is_imported);
    tried_ = std::max(tried_, runs.size());
    write(parts, looks);
    tried_ -= runs.size();
}

void Lanes::write(const std::array<std::vector<const RunRecord *>, 2> &parts, bool looks) {
    std::exception_ptr second;
    std::thread thread;
    if (!parts[1].empty())
        thread = dtctl::thread_without_signals(
            [&] { second = failure_of([&] { lanes_[1].write(parts[1], looks); }); });
    const std::exception_ptr first = failure_of([&] { lanes_[0].write(parts[0], looks); });
    if (thread.joinable()) thread.join();
    if (first) std::rethrow_exception(first);
    if (second) std::rethrow_exception(second);
}

void Lanes::learn(const std::vector<SeriesMeaning> &meanings) {
    for (Lane &lane : lanes_) lane.learn(meanings);
}

} // namespace dtfleet::postgres
