#include "dtctl/output/progress.h"

#include <fmt/format.h>

#include <cstdio>

namespace dtctl {
namespace {

// Nobody can be told when standard error fails.
void say(const std::string &text) { (void)std::fputs(text.c_str(), stderr); }

} // namespace

Progress::~Progress() {
    if (!shown_ || !begun_) return;
    draw();
    say("\n");
}

void Progress::update(const dt::decode::Totals &totals) {
    totals_ = totals;
    begun_ = true;
    const auto now = std::chrono::steady_clock::now();
    if (!shown_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    draw();
}

void Progress::clear() {
    if (drawn_) say("\r\033[K");
    drawn_ = false;
}

void Progress::note(const std::string &text) {
    clear();
    say("dtctl: " + text + '\n');
}

void Progress::draw() {
    clear();
    say(fmt::format("{} messages, {} values, {} bytes", totals_.messages, totals_.values,
                    totals_.bytes));
    drawn_ = true;
}

} // namespace dtctl
