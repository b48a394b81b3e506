// The configuration server's log: a line for each request, and for what the server itself does.
//
// It never keeps the server from its work. Lines are left out, and counted, where too many come in
// a second and where writing would wait, as for a terminal that is stopped; once the log cannot be
// written, the server goes on without.
#pragma once

#include "dtctl/output/output.h"
#include "host/time.h"

#include <cstddef>
#include <cstdio>
#include <string>

namespace dtctl {

class ConfigLog {
public:
    // A full disk stays away for days so: 100 lines, or 32 KiB, a second.
    static constexpr size_t max_lines = 100;
    static constexpr size_t max_bytes = size_t{32} * 1024;

    // out must outlive the log and is not closed by it.
    explicit ConfigLog(std::FILE *out) : file_(out), out_(out) {}

    // A line about a request; one of those that may be left out.
    void add(const std::string &text, Clock::time_point now);

    // A line about the server itself.
    void say(const std::string &text);

    // Says how many lines were left out, once their second is over.
    void catch_up(Clock::time_point now);

    // How long poll may wait until catch_up has something to say, in milliseconds; -1: for ever.
    int milliseconds_left() const;

private:
    bool would_wait() const;

    std::FILE *file_;
    Output out_;
    bool works_ = true;
    Clock::time_point second_{}; // when the present second began
    size_t lines_ = 0;           // written in it
    size_t bytes_ = 0;
    size_t left_out_ = 0;
};

} // namespace dtctl
