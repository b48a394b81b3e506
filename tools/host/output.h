// Where a command's results go.
#pragma once

#include "host/terminal.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace dtctl {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

// Opens the file that the results go to. What it held stays until the first of them are written, or
// until it is closed and there were none; a command that fails before leaves it as it was. Throws
// Failure when it is the input, the file that the command is about to read ("-": standard input),
// and when that cannot be read.
Stream open_output(const std::string &path, const std::string &input = "");

// A stream whose errors are kept until it is flushed.
class Output {
public:
    // out must outlive the output and is not closed by it.
    explicit Output(std::FILE *out) : out_(out), colours_(shows_colours(out)) {}

    void put(std::string_view text);

    // Brings out what is buffered. Throws Failure once anything could not be written; without a
    // message when the reader went away, as `head` does.
    void flush();

    // A text that stands out, or back, where colours are welcome.
    std::string strong(std::string_view text) const {
        return colours_ ? bold(text) : std::string(text);
    }
    std::string weak(std::string_view text) const {
        return colours_ ? faint(text) : std::string(text);
    }

private:
    std::FILE *out_;
    bool colours_;
    int error_ = 0;
};

} // namespace dtctl
