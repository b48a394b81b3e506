// The commands of dtfleet. Each adds itself to the program; its callback does the work and throws
// dtctl::Failure.
#pragma once

#include <CLI/CLI.hpp>

namespace dtfleet {

void add_run(CLI::App &app);
void add_status(CLI::App &app);
void add_devices(CLI::App &app);
void add_history(CLI::App &app);
void add_compare(CLI::App &app);
void add_export(CLI::App &app);
void add_pause(CLI::App &app);
void add_rename(CLI::App &app);
void add_forget(CLI::App &app);
void add_accept(CLI::App &app);
void add_check(CLI::App &app);
void add_backup(CLI::App &app);
void add_ask(CLI::App &app);
void add_reload(CLI::App &app);
void add_discover(CLI::App &app);
void add_import(CLI::App &app);
void add_import_faults(CLI::App &app);
void add_import_capture(CLI::App &app);
void add_simulate(CLI::App &app);

} // namespace dtfleet
