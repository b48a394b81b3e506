// The commands of dtfleet. Each adds itself to the program; its callback does the work and throws
// dtctl::Failure.
#pragma once

#include "host/command.h"

namespace dtfleet {

void add_run(dtctl::Command &program);
void add_status(dtctl::Command &program);
void add_devices(dtctl::Command &program);
void add_history(dtctl::Command &program);
void add_compare(dtctl::Command &program);
void add_export(dtctl::Command &program);
void add_pause(dtctl::Command &program);
void add_rename(dtctl::Command &program);
void add_forget(dtctl::Command &program);
void add_accept(dtctl::Command &program);
void add_check(dtctl::Command &program);
void add_backup(dtctl::Command &program);
void add_migrate(dtctl::Command &program);
void add_move(dtctl::Command &program);
void add_ask(dtctl::Command &program);
void add_reload(dtctl::Command &program);
void add_discover(dtctl::Command &program);
void add_import(dtctl::Command &program);
void add_import_faults(dtctl::Command &program);
void add_import_capture(dtctl::Command &program);
void add_simulate(dtctl::Command &program);

} // namespace dtfleet
