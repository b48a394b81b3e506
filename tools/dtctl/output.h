// Where a command's results go, and in which form.
#pragma once

#include <cstdio>
#include <string_view>

namespace dtctl {

enum class Format { table, json, csv };

// A stream whose errors are kept until it is flushed.
class Output {
public:
    // out must outlive the output and is not closed by it.
    explicit Output(std::FILE *out) : out_(out) {}

    void put(std::string_view text);

    // Brings out what is buffered. Throws Failure once anything could not be written; without a
    // message when the reader went away, as `head` does.
    void flush();

private:
    std::FILE *out_;
    int error_ = 0;
};

} // namespace dtctl
