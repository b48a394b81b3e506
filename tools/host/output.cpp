#include "host/output.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>

namespace dtctl {
namespace {

[[noreturn]] void refuse(const std::string &path, const char *reason) {
    throw Failure(Exit::failed, fmt::format("cannot write {}: {}", escape(path), reason));
}

// By whatever names. What is no file, like a terminal, may well be both.
bool is_same_file(const std::string &path, const std::string &other) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) &&
           std::filesystem::equivalent(path, other, error);
}

// A file that is about to be written anew.
struct Target {
    Fd fd;
    bool emptied = false;

    // What is no file, like a pipe, cannot be emptied and need not be.
    bool empty() {
        emptied = emptied || ::ftruncate(fd.get(), 0) == 0 || errno == EINVAL;
        return emptied;
    }
};

ssize_t write_target(void *cookie, const char *bytes, size_t size) {
    Target &target = *static_cast<Target *>(cookie);
    if (!target.empty()) return 0;
    size_t written = 0;
    while (written < size) {
        const ssize_t count = ::write(target.fd.get(), bytes + written, size - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        written += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(written);
}

int close_target(void *cookie) {
    const std::unique_ptr<Target> target(static_cast<Target *>(cookie));
    if (std::uncaught_exceptions() == 0) target->empty();
    return 0;
}

} // namespace

Stream open_output(const std::string &path, const std::string &input) {
    if (path.empty()) return {stdout, [](std::FILE *) { return 0; }};
    if (is_same_file(path, input == "-" ? "/dev/stdin" : input))
        refuse(path, "it is the file to be read");
    if (!input.empty() && input != "-" && ::access(input.c_str(), R_OK) != 0)
        report_unreadable(input);
    auto target = std::make_unique<Target>();
    target->fd = Fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (!target->fd) refuse(path, std::strerror(errno));
    std::FILE *file =
        ::fopencookie(target.get(), "w", {nullptr, write_target, nullptr, close_target});
    if (!file) refuse(path, std::strerror(errno));
    (void)target.release(); // the stream's now
    return {file, std::fclose};
}

void Output::put(std::string_view text) {
    if (error_ == 0 && std::fwrite(text.data(), 1, text.size(), out_) != text.size())
        error_ = errno;
}

void Output::flush() {
    if (error_ == 0 && std::fflush(out_) != 0) error_ = errno;
    if (error_ == 0) return;
    const bool reader_left = error_ == EPIPE;
    throw Failure(Exit::failed,
                  reader_left ? ""
                              : std::string("cannot write the output: ") + std::strerror(error_));
}

} // namespace dtctl
