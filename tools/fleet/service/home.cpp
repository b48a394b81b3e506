#include "fleet/service/home.h"

#include "host/failure.h"
#include "host/file.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace dtfleet {
namespace {

// Of this start of the machine; another machine has another one.
std::string boot() {
    try {
        return dtctl::read_whole_file("/proc/sys/kernel/random/boot_id");
    } catch (const dtctl::Failure &) {
        return "";
    }
}

} // namespace

Home::Home(const std::string &path)
    : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    struct stat here {};
    const std::string kernel = boot();
    if (!file_ || kernel.empty() || ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0 ||
        ::fstat(file_.get(), &here) != 0)
        return;
    key_ = fmt::format("{} {} {}", kernel.substr(0, kernel.find('\n')), here.st_dev, here.st_ino);
}

} // namespace dtfleet
