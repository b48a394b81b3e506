#include "fleet/engine/loop.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace dtfleet {
namespace {

constexpr int batch = 256;
constexpr int most_batches = 64; // in one turn of the loop

[[noreturn]] void fail() {
    throw dtctl::Failure(dtctl::Exit::failed, fmt::format("epoll: {}", std::strerror(errno)));
}

epoll_event event_of(uint64_t number, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = number;
    return event;
}

// Rounded up, so that the time has come when the wait is over; at most a minute.
int milliseconds_until(Time until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, 60'000));
}

} // namespace

Loop::Loop() : poll_(::epoll_create1(EPOLL_CLOEXEC)) {
    if (!poll_) fail();
}

uint64_t Loop::add(int fd, Handler handler) {
    epoll_event event = event_of(++last_, EPOLLIN);
    if (::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) fail();
    handlers_.emplace(last_, std::move(handler));
    return last_;
}

void Loop::watch(uint64_t number, int fd, bool input, bool room) {
    epoll_event event = event_of(number, (input ? EPOLLIN : 0u) | (room ? EPOLLOUT : 0u));
    if (::epoll_ctl(poll_.get(), EPOLL_CTL_MOD, fd, &event) != 0) fail();
}

void Loop::remove(uint64_t number, int fd) {
    if (handlers_.erase(number) != 0) (void)::epoll_ctl(poll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

bool Loop::wait(Time until) {
    int count = call_ready(until == Time::max() ? 60'000 : milliseconds_until(until));
    for (int turn = 1; turn < most_batches && count == batch; ++turn) count = call_ready(0);
    return count < batch;
}

// The system gives those that are ready in turns, so that a small batch starves nobody.
int Loop::call_ready(int timeout) {
    epoll_event events[batch];
    const int count = ::epoll_wait(poll_.get(), events, batch, timeout);
    for (int i = 0; i < count; ++i) {
        const auto found = handlers_.find(events[i].data.u64);
        if (found == handlers_.end()) continue; // removed by one before it
        const Handler handler = found->second;  // it may remove itself
        handler();
    }
    return count;
}

} // namespace dtfleet
