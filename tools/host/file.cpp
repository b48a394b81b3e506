#include "host/file.h"

#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace dtctl {
namespace {

Fd checked(int descriptor, const std::string &path) {
    Fd file(descriptor);
    struct stat about {};
    if (!file || ::fstat(descriptor, &about) != 0) report_unreadable(path);
    if (S_ISDIR(about.st_mode)) {
        errno = EISDIR;
        report_unreadable(path);
    }
    return file;
}

Fd open_file(const std::string &path) {
    return checked(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path);
}

} // namespace

Fd open_input(const std::string &path) {
    if (path != "-") return open_file(path);
    return checked(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0), path);
}

ssize_t read_some(const Fd &file, std::span<uint8_t> buffer) {
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count >= 0 || errno != EINTR) return count;
    }
}

void report_unreadable(const std::string &path) {
    throw Failure(Exit::failed,
                  fmt::format("cannot read {}: {}", path.empty() ? "''" : escape(path),
                              std::strerror(errno)));
}

std::string read_whole_file(const std::string &path, size_t most) {
    const Fd file = open_file(path);
    std::string text;
    std::array<uint8_t, 16'384> buffer;
    while (const ssize_t count = read_some(file, buffer)) {
        if (count > 0) {
            text.append(reinterpret_cast<const char *>(buffer.data()), static_cast<size_t>(count));
        }
        if (text.size() > most) errno = EFBIG;
        if (count < 0 || text.size() > most) report_unreadable(path);
    }
    return text;
}

} // namespace dtctl
