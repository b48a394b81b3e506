// Prints a fault log file's lines and values, each as soon as it is decoded.
#pragma once

#include "decode/fault_log.h"
#include "dtctl/output.h"

#include <cstdio>
#include <memory>

namespace dtctl {

// What each format looks like, for the help text.
extern const char *const fault_formats_help;

class FaultPrinter : public dt::decode::FaultSink, public Output {
public:
    using Output::Output;
};

std::unique_ptr<FaultPrinter> make_fault_printer(Format format, std::FILE *out);

} // namespace dtctl
