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

Loaded unread(const std::string &file, const std::exception &error) {
    Loaded loaded;
    loaded.complaints.push_back({file, 0, fmt::format("{}: {}", file, error.what())});
    return loaded;
}

// Nothing may escape the thread; what the files hold never throws.
Loaded loaded_from(const std::string &file) {
    try {
        return load_inventory(file);
    } catch (const std::exception &error) {
        return unread(file, error);
    }
}

} // namespace

Reloader::Reloader(std::string file, Loop &loop, Done done)
    : file_(std::move(file)), loop_(loop), done_(std::move(done)),
      finished_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!finished_) throw dtctl::Failure(dtctl::Exit::failed, std::strerror(errno));
    number_ = loop_.add(finished_.get(), [this] { finish(); });
}

Reloader::~Reloader() {
    if (thread_.joinable()) thread_.join();
    loop_.remove(number_, finished_.get());
}

void Reloader::start() {
    if (thread_.joinable())
        again_ = true;
    else
        begin();
}

void Reloader::begin() {
    try {
        thread_ = std::thread([this] {
            loaded_ = loaded_from(file_);
            (void)::eventfd_write(finished_.get(), 1);
        });
    } catch (const std::system_error &error) { // no memory for a thread, or too many of them
        done_(unread(file_, error));
    }
}

void Reloader::finish() {
    eventfd_t count = 0;
    if (::eventfd_read(finished_.get(), &count) != 0) return;
    thread_.join();
    Loaded loaded = std::exchange(loaded_, {});
    if (std::exchange(again_, false)) return begin();
    done_(std::move(loaded));
}

} // namespace dtfleet
