// The options that say where results go and in which form. output must outlive the command.
#pragma once

#include "dtctl/output/output.h"
#include "host/command.h"

namespace dtctl {

// Two options of which one at most is given.
struct Exclusive {
    Option json, csv;
};

// Adds --json, --csv, --csv-raw and --output; without them output stays as it is.
Exclusive add_output_options(Command &command, OutputOptions &output);

// Adds --times for commands that print runs.
void add_times_option(Command &command, OutputOptions &output);

} // namespace dtctl
