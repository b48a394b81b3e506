// Prints a run's values, each as soon as it is complete.
#pragma once

#include "decode/events.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace dtctl {

enum class Format { table, json, csv };

// What each format looks like, for the help text.
extern const char *const formats_help;

class Printer : public dt::decode::Sink {
public:
    // out must outlive the printer and is not closed by it.
    explicit Printer(std::FILE *out) : out_(out) {}

    // Brings out what is buffered. Throws Failure once anything could not be written; without a
    // message when the reader went away, as `head` does.
    void flush();

    void on_opening(const dt::decode::Opening &opening) override;

protected:
    void put(std::string_view text);
    const std::string &identity() const { return identity_; } // four hex digits

private:
    std::FILE *out_;
    std::string identity_;
    int error_ = 0;
};

std::unique_ptr<Printer> make_printer(Format format, std::FILE *out);

// "int", "long", "string" or "buffer".
const char *type_name(dt::decode::Kind kind);

// The type shown for the line that names a collector under self-test.
inline constexpr const char *selftest_type = "selftest";

} // namespace dtctl
