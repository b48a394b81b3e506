#pragma once

#include "dtctl/faults/printer.h"

#include <string>

namespace dtctl {

// Shows a fault log file ("-": standard input). Throws Failure when it cannot be read, is damaged
// or stops short, after everything before that has been shown.
void show_fault_log(const std::string &path, FaultPrinter &printer);

} // namespace dtctl
