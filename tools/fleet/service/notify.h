// What the service tells the system's service manager, where there is one.
#pragma once

#include "fleet/engine/time.h"

#include <string>

namespace dtfleet {

class Notify {
public:
    Notify();

    void ready(const std::string &status); // also when a reload is over
    void status(const std::string &text);  // told when it is another one
    void reloading();
    void stopping();

    // To be called in each turn of the loop: feeds the watchdog, so that a loop that stands still
    // is noticed.
    void turned(Time time);

    // By when turned() must be called again.
    Time next() const { return fed_ + period_; }

private:
    Time period_ = Time::max() / 2; // no watchdog
    Time fed_{};
    std::string status_;
};

} // namespace dtfleet
