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
    Printer(const OutputOptions &options, std::FILE *out) : Output(out), options_(options) {}

    // The run that follows comes from this address and began then.
    void start(const std::string &device, std::time_t when);

    // A run's heading waits for its first value: until then nothing is put.
    void on_opening(const dt::decode::Opening &opening) final;
    void on_selftest(const dt::decode::SelfTest &test) final;
    void on_value(const dt::decode::Value &value) final;

    // The run was whole: without values it leaves its heading. Throws Failure as flush() does.
    void end();

protected:
    virtual void put_heading() {}
    virtual void put_selftest(const dt::decode::SelfTest &test) = 0;
    virtual void put_value(const dt::decode::Value &value) = 0;

    const OutputOptions &options() const { return options_; }
    const std::string &device() const { return device_; }
    const std::string &identity() const { return identity_; } // four hex digits
    const std::string &time() const { return time_; }         // empty: not to be shown

private:
    void head();

    OutputOptions options_;
    std::string device_;
    std::string identity_;
    std::string time_;
    bool heading_is_due_ = false;
};

std::unique_ptr<Printer> make_printer(const OutputOptions &options, std::FILE *out);

// "int", "long", "string" or "buffer".
const char *type_name(dt::decode::Kind kind);

// The type shown for the line that names a collector under self-test.
inline constexpr const char *selftest_type = "selftest";

} // namespace dtctl
