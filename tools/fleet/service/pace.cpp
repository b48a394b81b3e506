#include "fleet/service/pace.h"

#include <numeric>

namespace dtfleet {
namespace {

constexpr Time span = std::chrono::seconds(10);

} // namespace

void Pace::note(const Statistics &all, Time time) {
    const auto &counts = all.lateness.counts();
    samples_.push_back({time, std::accumulate(all.runs.begin(), all.runs.end(), uint64_t{0}),
                        std::accumulate(counts.begin(), counts.end(), uint64_t{0}),
                        all.lateness.sum()});
    while (samples_.size() > 2 && samples_[1].time + span <= time) samples_.pop_front();
}

double Pace::rate() const {
    if (samples_.size() < 2) return 0;
    const Sample &first = samples_.front(), &last = samples_.back();
    const double seconds = std::chrono::duration<double>(last.time - first.time).count();
    return seconds > 0 ? static_cast<double>(last.runs - first.runs) / seconds : 0;
}

Microseconds Pace::lag() const {
    if (samples_.size() < 2 || samples_.back().begun == samples_.front().begun) return 0;
    const Sample &first = samples_.front(), &last = samples_.back();
    return static_cast<Microseconds>(1e6 * (last.late - first.late) /
                                     static_cast<double>(last.begun - first.begun));
}

} // namespace dtfleet
