#include "dtctl/collect/commands.h"
#include "dtctl/config/command.h"
#include "dtctl/faults/command.h"
#include "host/program.h"

namespace {

constexpr const char *footer = R"(Examples:
  dtctl collect --device 192.168.1.20
  dtctl selftest --device 192.168.1.20 --json
  dtctl decode visit.pcap
  dtctl fcm --html fcm.log > faults.html
  dtctl config devices.ini

dtctl help COMMAND tells more.

Exit status: 0 done; 1 a file cannot be read or the output not be written; 2 usage; 3 the
device was silent for too long; 4 an address or port cannot be reached or is taken; 5 what
was sent or read breaks its format or stops short.

On a terminal headings are bold, unless NO_COLOR is set in the environment.)";

void add_commands(dtctl::Command &program) {
    program.footer(footer);
    dtctl::add_collect(program);
    dtctl::add_selftest(program);
    dtctl::add_decode(program);
    dtctl::add_fcm(program);
    dtctl::add_config(program);
}

constexpr dtctl::Program program = {
    "dtctl", DTCTL_VERSION,
    "Talks with devices: collects their data, shows their fault logs, answers with settings.",
    add_commands};

} // namespace

int main(int argc, char **argv) { return dtctl::run_program(program, argc, argv); }
