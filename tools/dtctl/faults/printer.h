// Prints a fault log file's lines and values, each as soon as it is decoded.
#pragma once

#include "decode/fault_log.h"
#include "dtctl/output/output.h"

#include <cstdio>
#include <memory>
#include <string>

namespace dtctl {

// What each format looks like, for the help text.
extern const char *const fault_formats_help;

class FaultPrinter : public dt::decode::FaultSink, public Output {
public:
    using Output::Output;

    // The file has ended; damage: what is wrong with it, null for a whole file.
    virtual void end(const std::string & /*path*/, const dt::decode::Damage * /*damage*/) {}
};

// A number, with its signed reading in brackets when that is negative; data as hex, in brackets the
// text that they are.
std::string text_of(const dt::decode::FaultValue &value);

std::unique_ptr<FaultPrinter> make_fault_printer(const OutputOptions &options, std::FILE *out);

} // namespace dtctl
