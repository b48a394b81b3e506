#include "host/progress.h"

#include <cstdio>

namespace dtctl {
namespace {

// Nobody can be told when standard error fails.
void say(const std::string &text) { (void)std::fputs(text.c_str(), stderr); }

} // namespace

ProgressLine::~ProgressLine() {
    if (!shown_ || !begun_) return;
    draw();
    say("\n");
}

void ProgressLine::update() {
    begun_ = true;
    const auto now = std::chrono::steady_clock::now();
    if (!shown_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    draw();
}

void ProgressLine::clear() {
    if (drawn_) say("\r\033[K");
    drawn_ = false;
}

void ProgressLine::note(const std::string &remark) {
    clear();
    say(program_ + ": " + remark + '\n');
}

void ProgressLine::draw() {
    clear();
    say(text_());
    drawn_ = true;
}

} // namespace dtctl
