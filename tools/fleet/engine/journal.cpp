#include "fleet/engine/journal.h"

#include "host/text.h"

#include <fmt/format.h>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace dtfleet {
namespace {

constexpr Time hour = std::chrono::hours(1);
constexpr size_t longest_line = 2000; // a pipe takes it whole or not at all

// systemd says which file its journal listens at: the descriptor may have been led elsewhere since.
bool leads_to_journal(int fd) {
    const char *stream = std::getenv("JOURNAL_STREAM");
    struct stat file {};
    return stream && ::fstat(fd, &file) == 0 &&
           fmt::format("{}:{}", file.st_dev, file.st_ino) == stream;
}

bool takes_a_line(int fd) {
    pollfd out{fd, POLLOUT, 0};
    return ::poll(&out, 1, 0) > 0;
}

std::string reason_of(const RunRecord &run) {
    return run.reason.empty() ? text_of(run.outcome)
                              : fmt::format("{}: {}", text_of(run.outcome), run.reason);
}

} // namespace

Journal::Journal(int fd) : fd_(fd), has_levels_(leads_to_journal(fd)) {}

void Journal::say(Level level, std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        put(level, line);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
}

void Journal::put(Level level, std::string_view line) {
    if (!takes_a_line(fd_)) {
        ++lost_;
        return;
    }
    std::string out = has_levels_ ? fmt::format("<{}>", static_cast<int>(level)) : "dtfleet: ";
    if (lost_ != 0) out += fmt::format("({} lines before this were lost) ", lost_);
    out += dtctl::escape(line).substr(0, longest_line);
    out += '\n';
    lost_ = 0;
    (void)!::write(fd_, out.data(), out.size());
}

void Troubles::note(const RunRecord &run, Time time) {
    if (run.outcome == Outcome::stopped) return;
    if (!is_whole(run.outcome)) return note_failure(run, time);
    const auto known = devices_.find(run.device);
    if (known != devices_.end()) note_success(run.device, known->second);
}

void Troubles::note_failure(const RunRecord &run, Time time) {
    const auto [known, is_new] = devices_.try_emplace(run.device);
    Trouble &trouble = known->second;
    trouble.last = reason_of(run);
    if (is_new) {
        trouble.said = time;
        journal_.say(Journal::Level::warning, fmt::format("{}: {}", run.device, trouble.last));
        return;
    }
    ++trouble.runs;
    ++trouble.failed;
    trouble.in_a_row = trouble.is_over ? 1 : trouble.in_a_row + 1;
    trouble.is_over = false;
}

// A device that fails now and then says so once an hour.
void Troubles::note_success(const std::string &device, Trouble &trouble) {
    ++trouble.runs;
    if (trouble.is_over) return;
    trouble.is_over = true;
    if (trouble.said_over) return;
    trouble.said_over = true;
    journal_.say(Journal::Level::notice,
                 fmt::format("{}: answers again, after {} failed run{}", device, trouble.in_a_row,
                             trouble.in_a_row == 1 ? "" : "s"));
}

void Troubles::pass(Time time) {
    for (auto known = devices_.begin(); known != devices_.end();) {
        const bool is_due = known->second.said + hour <= time;
        if (is_due && !sum_up(known->first, known->second, time))
            known = devices_.erase(known);
        else
            ++known;
    }
}

// False when there is nothing more to say about the device.
bool Troubles::sum_up(const std::string &device, Trouble &trouble, Time time) {
    if (trouble.failed == 0 && trouble.is_over) return false;
    if (trouble.failed != 0)
        journal_.say(Journal::Level::warning,
                     fmt::format("{}: {} of {} runs failed in the last hour, the last one of them "
                                 "with {}",
                                 device, trouble.failed, trouble.runs, trouble.last));
    trouble.said = time;
    trouble.runs = trouble.failed = 0;
    trouble.said_over = false;
    return true;
}

void Hindrance::note(const std::string &reason, uint64_t dropped, Time time) {
    if (reason.empty() && is_said_) journal_.say(Journal::Level::notice, "devices are asked again");
    if (reason.empty()) is_said_ = false;
    if (time < quiet_until_) return;
    if (!reason.empty() && !is_said_) {
        is_said_ = true;
        journal_.say(Journal::Level::error, fmt::format("no device is asked: {}", reason));
        quiet_until_ = time + std::chrono::minutes(1);
    }
    if (dropped == dropped_) return;
    journal_.say(Journal::Level::error,
                 fmt::format("{} runs were lost, they could not be stored", dropped - dropped_));
    dropped_ = dropped;
    quiet_until_ = time + std::chrono::minutes(1);
}

void Hindrance::note_retention(bool clock_held, bool too_large) {
    if (clock_held && !clock_held_)
        journal_.say(Journal::Level::warning,
                     "the clock has moved, nothing is deleted; when it is right, say so with "
                     "dtfleet check --accept-clock");
    if (!clock_held && clock_held_)
        journal_.say(Journal::Level::notice, "the clock is trusted again");
    if (too_large && !too_large_)
        journal_.say(Journal::Level::warning,
                     "the database is larger than its size in [retention], and nothing is left "
                     "that may be deleted");
    clock_held_ = clock_held;
    too_large_ = too_large;
}

void Hindrance::note_outage(const std::string &away) {
    if (is_away_ == !away.empty()) return;
    is_away_ = !is_away_;
    if (is_away_)
        journal_.say(Journal::Level::warning, "the database is away, runs wait on disk: " + away);
    else
        journal_.say(Journal::Level::notice, "the database is back");
}

} // namespace dtfleet
