// dtctl config: the configuration server.
#include "dtctl/config/command.h"

#include "dtctl/config/exchange.h"
#include "dtctl/config/server.h"

#include <cstdio>
#include <string>

namespace dtctl {
namespace {

constexpr const char *behaviour_help =
    R"(The file is TOML when its name ends in .toml, otherwise INI:

  [net]
  mtu = 1400
  ; a comment, as with #; blanks around names and values are ignored
  banner = " in double quotes a value keeps its blanks "

Keys before the first group belong to the group with the empty name. In TOML a table within a
table is a group with a dotted name, as in [net.wan]; numbers are sent in decimal, booleans
as true and false (which a device that asks for a number reads as 0), and arrays, dates and
times are refused, as are more than 1 MiB, dotted names of more than 32 parts or 1,000 bytes,
and inline tables more than 32 deep. Groups and keys have no blanks.

A setting that is not in the file gets no answer, so the device takes its default a second
later; with --echo-default it gets that default as an answer. A device whose first question
stays without answer never asks again until it restarts. An empty value counts as no answer,
too; of a value of more than 999 bytes the first 999 are sent. Malformed requests get no
answer.

Each request and its answer is logged on standard output with the local time: at most 100
lines or 32 KiB a second, and then how many were left out. When the log cannot be written,
standard error says so once, and the server goes on without.

SIGHUP reads the file again; what was read before stays when that fails. SIGINT and SIGTERM
end the server.)";

constexpr const char *exit_help =
    R"(Exit status: 0 ended by a signal; 1 the file cannot be read; 2 usage; 4 the address or port
cannot be listened on; 5 the file breaks its format.)";

void run(const ConfigOptions &options) { ConfigServer(options, stdout).run(); }

} // namespace

void add_config(Command &program) {
    Command command = program.command("config", "Answer the devices' questions for settings");
    ConfigOptions &options = command.runs(run);
    options.port = config_port;
    command.argument("FILE", options.path, "The settings");
    command
        .number("--port", "PORT", options.port, 0, 65535,
                "UDP port for the requests; 0: any free one")
        .shows_default();
    command
        .option("--bind", "ADDRESS", options.address,
                "Local address for the requests; only 0.0.0.0 hears broadcasts")
        .shows_default();
    command.flag("--echo-default", options.echo_default,
                 "Answer with the device's default where nothing is set");
    command.footer(std::string("Examples:\n  dtctl config devices.ini\n"
                               "  dtctl config lab.toml --bind 127.0.0.1 --echo-default\n\n") +
                   behaviour_help + "\n\n" + exit_help);
}

} // namespace dtctl
