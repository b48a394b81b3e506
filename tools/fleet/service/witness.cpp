#include "fleet/service/witness.h"

#include <utility>

namespace dtfleet {

void Witness::put(RunRecord run) {
    const Time time = now();
    troubles_.note(run, time);
    for (const std::string &report : identities_.note(run, time))
        journal_.say(Journal::Level::warning, report);
    if (run.device == held_device_)
        held_.push_back(std::move(run));
    else
        outlet_.put(std::move(run));
}

void Witness::release(const std::string &name) {
    held_device_.reset();
    for (RunRecord &run : std::exchange(held_, {})) {
        run.device = name;
        outlet_.put(std::move(run));
    }
}

} // namespace dtfleet
