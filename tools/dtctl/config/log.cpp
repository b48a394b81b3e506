#include "dtctl/config/log.h"

#include "dtctl/output/progress.h"
#include "host/failure.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <poll.h>

#include <chrono>
#include <climits>
#include <utility>

namespace dtctl {
namespace {

constexpr std::chrono::seconds one_second(1);
constexpr size_t max_line = PIPE_BUF; // what a pipe that says it is ready takes without waiting

std::string time_text() {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now - seconds);
    return fmt::format("{:%F %T}.{:03}",
                       fmt::localtime(std::chrono::system_clock::to_time_t(seconds)), rest.count());
}

} // namespace

void ConfigLog::add(const std::string &text, Clock::time_point now) {
    catch_up(now);
    if (lines_ >= max_lines || bytes_ >= max_bytes) {
        ++left_out_;
        return;
    }
    ++lines_;
    bytes_ += text.size();
    say(text);
}

void ConfigLog::say(const std::string &text) {
    if (!works_) return;
    if (would_wait()) {
        ++left_out_;
        return;
    }
    try {
        const std::string line = fmt::format("{} {}", time_text(), text);
        out_.put(line.substr(0, max_line - 1) + '\n');
        out_.flush();
    } catch (const Failure &failure) {
        works_ = false;
        const std::string reason = failure.what();
        Progress(false).note((reason.empty() ? "nobody reads the log any more" : reason) +
                             "; the server goes on without a log");
    }
}

void ConfigLog::catch_up(Clock::time_point now) {
    if (now - second_ < one_second) return;
    second_ = now;
    lines_ = bytes_ = 0;
    if (left_out_ == 0 || would_wait()) return;
    const size_t count = std::exchange(left_out_, 0);
    say(fmt::format("{} {} left out", count, count == 1 ? "line was" : "lines were"));
}

int ConfigLog::milliseconds_left() const {
    return left_out_ == 0 ? -1 : milliseconds_until(second_ + one_second);
}

bool ConfigLog::would_wait() const {
    const int fd = ::fileno(file_);
    pollfd entry{fd, POLLOUT, 0};
    return fd >= 0 && ::poll(&entry, 1, 0) == 0;
}

} // namespace dtctl
