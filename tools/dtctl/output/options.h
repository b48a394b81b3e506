// The options that say where results go and in which form. output must outlive the command.
#pragma once

#include "dtctl/output/output.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace dtctl {

// Adds --json, --csv, --csv-raw and --output; without them output stays as it is. Returns --csv,
// which excludes --json.
CLI::Option *add_output_options(CLI::App &command, OutputOptions &output);

// Adds --times for commands that print runs.
void add_times_option(CLI::App &command, OutputOptions &output);

} // namespace dtctl
