#include "fleet/service/notify.h"

#include <fmt/format.h>

#include <systemd/sd-daemon.h>

namespace dtfleet {
namespace {

// Of the clock by which the manager tells a reload from the one before.
uint64_t monotonic_microseconds() {
    timespec time{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<uint64_t>(time.tv_nsec) / 1000;
}

} // namespace

Notify::Notify() {
    uint64_t microseconds = 0;
    if (::sd_watchdog_enabled(0, &microseconds) > 0)
        period_ = std::chrono::microseconds(microseconds / 3);
}

void Notify::ready(const std::string &status) {
    (void)::sd_notify(0, fmt::format("READY=1\nSTATUS={}", status_ = status).c_str());
}

void Notify::status(const std::string &text) {
    if (text == status_) return;
    (void)::sd_notify(0, fmt::format("STATUS={}", status_ = text).c_str());
}

void Notify::reloading() {
    (void)::sd_notify(
        0, fmt::format("RELOADING=1\nMONOTONIC_USEC={}", monotonic_microseconds()).c_str());
}

void Notify::stopping() { (void)::sd_notify(0, "STOPPING=1"); }

void Notify::turned(Time time) {
    if (time < next()) return;
    fed_ = time;
    (void)::sd_notify(0, "WATCHDOG=1");
}

} // namespace dtfleet
