#include "fleet/service/reloader.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

namespace dtfleet {
namespace {

Loaded unread(const std::exception &error) {
    Loaded loaded;
    loaded.is_read = false;
    loaded.complaints.push_back(
        {"", 0, fmt::format("the configuration cannot be read now: {}", error.what())});
    return loaded;
}

// Nothing may escape the thread; what the files hold never throws.
Loaded loaded_by(const Reloader::Read &read) {
    try {
        return read();
    } catch (const std::exception &error) {
        return unread(error);
    }
}

} // namespace

Reloader::Reloader(Loop &loop, Done done)
    : loop_(loop), done_(std::move(done)), finished_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!finished_) throw dtctl::Failure(dtctl::Exit::failed, std::strerror(errno));
    number_ = loop_.add(finished_.get(), [this] { finish(); });
}

Reloader::~Reloader() {
    if (thread_.joinable()) thread_.join();
    loop_.remove(number_, finished_.get());
}

void Reloader::start(Read read) {
    next_ = std::move(read);
    if (!thread_.joinable()) begin();
}

void Reloader::begin() {
    try {
        thread_ = std::thread([this, read = std::exchange(next_, {})] {
            loaded_ = loaded_by(read);
            (void)::eventfd_write(finished_.get(), 1);
        });
    } catch (const std::system_error &error) { // no memory for a thread, or too many of them
        done_(unread(error));
    }
}

void Reloader::finish() {
    eventfd_t count = 0;
    if (::eventfd_read(finished_.get(), &count) != 0) return;
    thread_.join();
    Loaded loaded = std::exchange(loaded_, {});
    if (next_) return begin();
    done_(std::move(loaded));
}

} // namespace dtfleet
