#include "fleet/store/import.h"

#include "capture/collections.h"
#include "decode/fault_log.h"
#include "fleet/store/digest.h"
#include "fleet/store/intake.h"
#include "host/failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using dtctl::Exit;
using dtctl::Failure;

std::span<const uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// A service that writes meanwhile comes first: between its transactions there is room for ours.
template <typename Work> void patiently(const Work &work) {
    for (int left = 100;; --left) {
        try {
            return work();
        } catch (const Unavailable &) {
            if (left == 0) throw;
        }
        std::this_thread::sleep_for(100ms);
    }
}

// ---- faults -------------------------------------------------------------------------------------

class FaultRows final : public dt::decode::FaultSink {
public:
    std::vector<FaultRow> rows;

private:
    void on_line(const dt::decode::LogLine &line) override {
        FaultRow &row = rows.emplace_back();
        row.fault = line.fault;
        row.kind = line.log == dt::decode::FaultLog::init ? "init" : "run";
        row.stamp = line.time.value_or("");
        row.value = line.text.value_or("");
    }
    void on_fault_value(const dt::decode::FaultValue &value) override {
        constexpr const char *kinds[] = {"register",  "register64",   "register-data", "counter",
                                         "counter64", "counter-data", "value"};
        FaultRow &row = rows.emplace_back();
        row.fault = value.fault;
        row.kind = kinds[static_cast<size_t>(value.kind)];
        row.value_id = value.id;
        row.value = number_size(value.kind) != 0 ? std::to_string(value.number) : value.data;
    }
};

// ---- runs ---------------------------------------------------------------------------------------

// In a self-test each collector says its name when its turn comes, and there is no directory.
struct Nature final : dt::decode::Sink {
    bool has_directory = false;
    bool has_tests = false;
    void on_directory_entry(const dt::decode::DirectoryEntry &) override { has_directory = true; }
    void on_selftest(const dt::decode::SelfTest &) override { has_tests = true; }
};

// The command is not part of what a device sends. An empty run without directory says nothing: as
// a collection it would say that all keys are gone.
Kind kind_of(const dtctl::Collected &collected, bool whole, const Limits &limits) {
    Nature nature;
    dt::decode::Decoder decoder(nature, limits.value_bytes);
    decoder.feed(bytes_of(collected.bytes));
    const bool is_selftest = nature.has_tests || (whole && !nature.has_directory);
    return is_selftest ? Kind::selftest : Kind::collection;
}

RunId id_of(const Sender &sender, Microseconds time, const std::string &bytes) {
    Digester digester;
    digester.add(static_cast<uint64_t>(sender.id));
    digester.add(static_cast<uint64_t>(time));
    digester.add(bytes);
    return digester.digest();
}

uint32_t microseconds_between(int64_t from, int64_t to) {
    return static_cast<uint32_t>(std::clamp<int64_t>(to - from, 0, UINT32_MAX));
}

const char *why_open(const dtctl::Collected &collected) {
    if (collected.incomplete) return "the capture lacks what follows";
    return collected.reset ? "the connection was reset" : "the capture ends before the run does";
}

// What the bytes are, and how they ended.
void decode(const dtctl::Collected &collected, const Limits &limits, RunRecord &run) {
    Intake intake(limits);
    const bool good = intake.feed(bytes_of(collected.bytes));
    if (good && collected.closed) intake.close();
    run.messages = static_cast<uint32_t>(intake.totals().messages);
    run.bytes = intake.totals().bytes;
    run.outcome = intake.outcome();
    run.reason = intake.reason();
    if (good && !collected.closed) {
        run.outcome = collected.reset ? Outcome::reset : Outcome::malformed;
        run.reason = fmt::format("{}, after {} messages and {} bytes", why_open(collected),
                                 run.messages, run.bytes);
    }
    if (const auto &opening = intake.opening())
        run.identity = static_cast<uint16_t>(opening->identity[0] << 8 | opening->identity[1]);
    run.samples = intake.take_samples();
}

RunRecord run_of(const dtctl::Collected &collected, const Sender &sender, const Limits &limits) {
    RunRecord run;
    decode(collected, limits, run);
    run.device = sender.device;
    run.kind = kind_of(collected, is_whole(run.outcome), limits);
    run.command = run.kind == Kind::selftest ? 3 : sender.command;
    run.keeps_all = sender.keeps_all;
    run.imported = true;
    run.address = dtctl::sender_of(collected);
    run.time = collected.opened != 0 ? collected.opened : collected.begun;
    run.to_opening = microseconds_between(collected.begun, run.time);
    run.to_end = microseconds_between(run.time, collected.ended);
    run.id = id_of(sender, run.time, collected.bytes);
    return run;
}

// Stores runs a few at a time: no transaction is so long that the service would wait for it.
class Batch {
public:
    explicit Batch(Store &store) : store_(store) {}

    void add(RunRecord run) {
        bytes_ += run.bytes;
        runs_.push_back(std::move(run));
        if (runs_.size() >= 50 || bytes_ >= 250'000) flush();
    }

    void flush() {
        if (runs_.empty()) return;
        if (const std::string reason = store_.no_room(); !reason.empty())
            throw Failure(Exit::failed, reason);
        patiently([this] { store_.write(runs_); });
        runs_.clear();
        bytes_ = 0;
        std::this_thread::sleep_for(10ms);
    }

private:
    Store &store_;
    std::vector<RunRecord> runs_;
    uint64_t bytes_ = 0;
};

} // namespace

size_t import_faults(Store &store, const std::string &device, std::string_view file,
                     Microseconds written) {
    FaultRows sink;
    dt::decode::FaultLogDecoder decoder(sink);
    if (!decoder.feed(bytes_of(file)) || !decoder.finish())
        throw Failure(Exit::broken, fmt::format("byte {}: {}", decoder.damage()->offset,
                                                decoder.damage()->reason));
    Digester digester;
    digester.add(file);
    const FaultFile faults{device, digester.digest(), written, std::move(sink.rows)};
    size_t added = 0;
    patiently([&] { added = store.add_faults(faults); });
    return added;
}

CapturedRuns import_capture(Store &store, const std::string &path,
                            const std::map<std::string, Sender> &senders, const Limits &limits) {
    CapturedRuns result;
    Batch batch(store);
    const auto take = [&](const dtctl::Collected &collected) {
        const auto sender = senders.find(dtctl::sender_of(collected));
        if (sender == senders.end()) {
            ++result.strangers[dtctl::sender_of(collected)];
            return;
        }
        RunRecord run = run_of(collected, sender->second, limits);
        ++(is_whole(run.outcome) ? result.whole : result.broken);
        batch.add(std::move(run));
    };
    try {
        dtctl::read_collections(path, limits.value_bytes, take);
    } catch (const Failure &failure) {
        if (failure.code() != Exit::broken) throw;
        result.trouble = failure.what();
    }
    batch.flush();
    return result;
}

} // namespace dtfleet
