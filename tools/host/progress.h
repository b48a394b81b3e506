// One line on standard error that says how far long work is.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace dtctl {

class ProgressLine {
public:
    // shown: whether there is a line at all; meant for a terminal. text makes the line, and must do
    // so as long as this lives.
    ProgressLine(std::string program, bool shown, std::function<std::string()> text)
        : program_(std::move(program)), text_(std::move(text)), shown_(shown) {}
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    // Draws the last text for good.
    ~ProgressLine();

    // Something has changed: draws the line, at most ten times a second.
    void update();

    // Takes the line away, so that other output on the same terminal has it.
    void clear();

    // A remark for the user, shown on any kind of standard error.
    void note(const std::string &remark);

private:
    void draw();

    std::string program_;
    std::function<std::string()> text_;
    bool shown_;
    bool drawn_ = false;
    bool begun_ = false;
    std::chrono::steady_clock::time_point next_{};
};

} // namespace dtctl
