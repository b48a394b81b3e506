// Threads beside the main one.
#pragma once

#include <csignal>
#include <functional>
#include <thread>

namespace dtctl {

// The program's signals are for its main thread.
inline std::thread thread_without_signals(std::function<void()> work) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(work));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace dtctl
