// The subcommands. Each adds its options to the program and runs when it is chosen.
#pragma once

#include "dtctl/output.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace dtctl {

void add_collect(CLI::App &app);
void add_selftest(CLI::App &app);
void add_decode(CLI::App &app);
void add_fcm(CLI::App &app);
void add_config(CLI::App &app);

// Adds --json, --csv and --output; without them output stays as it is. Returns --csv, which
// excludes
// --json. output must outlive the command.
CLI::Option *add_output_options(CLI::App &command, OutputOptions &output);

// Adds --times for commands that print runs.
void add_times_option(CLI::App &command, OutputOptions &output);

} // namespace dtctl
