// Time as it passes, whoever sets the clock; a limit in it for work that signals may interrupt.
#ifndef DT_BASE_DEADLINE_H
#define DT_BASE_DEADLINE_H

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <time.h>

namespace dt {

// Milliseconds of the clock that nobody sets.
inline int64_t monotonic() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

class Deadline {
public:
    // In so many milliseconds; 0 or below: never.
    explicit Deadline(int32_t milliseconds)
        : end_(milliseconds > 0 ? monotonic() + milliseconds + 1 : 0) {} // 1: the running one

    bool is_set() const { return end_ != 0; }

    // Waits until a descriptor is ready for one of poll's events; false when the time is up, ready
    // or not, and when waiting fails.
    bool wait(int fd, short events) const {
        pollfd entry = {fd, events, 0};
        int ready;
        do {
            const int time = left();
            if (time == 0) return false;
            ready = poll(&entry, 1, time);
        } while (ready < 0 && errno == EINTR);
        return ready > 0;
    }

private:
    // As poll wants it.
    int left() const {
        if (!is_set()) return -1;
        const int64_t time = end_ - monotonic();
        if (time > INT32_MAX) return INT32_MAX;
        return time > 0 ? static_cast<int>(time) : 0;
    }

    int64_t end_; // 0: none
};

} // namespace dt

#endif
