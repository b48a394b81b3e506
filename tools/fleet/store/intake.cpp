#include "fleet/store/intake.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace dtfleet {
namespace {

constexpr size_t most_collectors = 256; // a directory of one message holds fewer

std::string place_text(const dt::decode::Break &broken) {
    return fmt::format("message {}, byte {}: {}", broken.message, broken.offset, broken.reason);
}

} // namespace

bool Intake::feed(std::span<const uint8_t> bytes) {
    if (!decoder_.feed(bytes)) return refuse(Outcome::malformed, place_text(*decoder_.broken()));
    if (totals().bytes > limits_.run_bytes)
        return refuse(Outcome::too_large, fmt::format("more than {} bytes", limits_.run_bytes));
    if (too_many_collectors_)
        return refuse(Outcome::too_large, fmt::format("more than {} collectors", most_collectors));
    if (has_too_many_series())
        return refuse(Outcome::too_large, fmt::format("more than {} series", limits_.run_series));
    return true;
}

void Intake::close() {
    next_count_ = 0;
    if (!decoder_.finish())
        refuse(Outcome::malformed, place_text(*decoder_.broken()));
    else if (has_too_many_series())
        refuse(Outcome::too_large, fmt::format("more than {} series", limits_.run_series));
    else
        outcome_ = Outcome::whole;
}

uint64_t Intake::take_unacknowledged() {
    return totals().messages - std::exchange(acknowledged_, totals().messages);
}

bool Intake::refuse(Outcome outcome, std::string reason) {
    outcome_ = outcome;
    reason_ = std::move(reason);
    return false;
}

void Intake::on_value(const dt::decode::Value &value) {
    Sample sample{value.number, 0, value.section, value.key, place_of(value), value.kind};
    if (!is_number(value.kind)) {
        sample.number = samples_.bytes.size();
        sample.size = static_cast<uint32_t>(value.bytes.size());
        samples_.bytes += value.bytes;
    }
    samples_.list.push_back(sample);
}

// Collectors come one after the other, so the last one is mostly the right one.
uint16_t Intake::place_of(const dt::decode::Value &value) {
    auto &names = samples_.collectors;
    std::string name = value.collector ? *value.collector : fmt::format("#{}", value.index);
    if (!names.empty() && names.back() == name) return static_cast<uint16_t>(names.size() - 1);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found != names.end()) return static_cast<uint16_t>(found - names.begin());
    too_many_collectors_ |= names.size() == most_collectors;
    if (too_many_collectors_) return 0;
    names.push_back(std::move(name));
    return static_cast<uint16_t>(names.size() - 1);
}

// There are no more series than values; so they are counted seldom, and in most runs never.
bool Intake::has_too_many_series() {
    const std::vector<Sample> &list = samples_.list;
    if (list.size() <= std::max(next_count_, limits_.run_series)) return false;
    next_count_ = 2 * list.size();
    const auto series_of = [](const Sample &s) {
        return std::tuple(s.collector, s.section, s.key, s.kind);
    };
    std::vector<Sample> sorted = list;
    const auto before = [&](const Sample &a, const Sample &b) {
        return series_of(a) < series_of(b);
    };
    const auto same = [&](const Sample &a, const Sample &b) {
        return series_of(a) == series_of(b);
    };
    std::sort(sorted.begin(), sorted.end(), before);
    const auto end = std::unique(sorted.begin(), sorted.end(), same);
    return static_cast<size_t>(end - sorted.begin()) > limits_.run_series;
}

} // namespace dtfleet
