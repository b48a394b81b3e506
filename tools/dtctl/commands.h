// The subcommands. Each adds its options to the program and runs when it is chosen.
#pragma once

#include "dtctl/output.h"

namespace CLI {
class App;
}

namespace dtctl {

void add_collect(CLI::App &app);
void add_selftest(CLI::App &app);
void add_fcm(CLI::App &app);
void add_config(CLI::App &app);

// Adds --json and --csv; without them the format stays as it is. format must outlive the command.
void add_format_options(CLI::App &command, Format &format);

} // namespace dtctl
