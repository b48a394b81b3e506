// One line on standard error that counts what has arrived.
#pragma once

#include "decode/decoder.h"

#include <chrono>
#include <string>

namespace dtctl {

class Progress {
public:
    // shown: whether there is a line at all; meant for a terminal.
    explicit Progress(bool shown) : shown_(shown) {}
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Draws the last totals for good.
    ~Progress();

    // Draws the totals, at most ten times a second.
    void update(const dt::decode::Totals &totals);

    // Takes the line away, so that other output on the same terminal has it.
    void clear();

    // A remark for the user, shown on any kind of standard error.
    void note(const std::string &text);

private:
    void draw();

    bool shown_;
    bool drawn_ = false;
    bool begun_ = false;
    dt::decode::Totals totals_;
    std::chrono::steady_clock::time_point next_{};
};

} // namespace dtctl
