// Prints a run's values, each as soon as it is complete.
#pragma once

#include "decode/events.h"
#include "dtctl/output/output.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace dtctl {

// What each format looks like, for the help text.
extern const char *const formats_help;

class Printer : public dt::decode::Sink, public Output {
public:
    // with_times: whether each run says when it began.
    Printer(std::FILE *out, bool with_times) : Output(out), with_times_(with_times) {}

    // The run that follows began then.
    void start(std::time_t when);

    void on_opening(const dt::decode::Opening &opening) override;

protected:
    const std::string &identity() const { return identity_; } // four hex digits

    const std::string &time() const { return time_; } // empty: not to be shown

private:
    bool with_times_;
    std::string identity_;
    std::string time_;
};

std::unique_ptr<Printer> make_printer(Format format, std::FILE *out, bool with_times = false);

// "int", "long", "string" or "buffer".
const char *type_name(dt::decode::Kind kind);

// The type shown for the line that names a collector under self-test.
inline constexpr const char *selftest_type = "selftest";

} // namespace dtctl
