// dtctl collect and dtctl selftest: the same session with another command.
#include "dtctl/commands.h"
#include "dtctl/session.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

namespace dtctl {
namespace {

struct Options {
    Request request;
    double timeout = 10;
    Format format = Format::table;
};

constexpr const char *behaviour_help =
    R"(The command goes out as one datagram that may get lost, and a device that is busy
answers late. So it is repeated at even steps of the time-out until the device connects.
A device that got it twice tries a second run later, finds nobody listening, and notes
that in its log; --resend 0 sends it once only. A device that connects from another
address than --device is turned away.)";

constexpr const char *exit_help =
    R"(Exit status: 0 a whole run arrived; 1 the output cannot be written; 2 usage; 3 time-out;
4 the device cannot be reached or refuses, or the port to listen on is taken; 5 what
arrived breaks the format or stops short (values before that are printed).)";

void run(const Options &options) {
    // A range lets "nan" pass.
    if (std::isnan(options.timeout)) throw CLI::ValidationError("--timeout", "not a number");
    Request request = options.request;
    request.timeout = std::chrono::ceil<std::chrono::milliseconds>(
        std::chrono::duration<double>(options.timeout));
    const auto printer = make_printer(options.format, stdout);
    Progress progress(::isatty(STDERR_FILENO) != 0);
    Session(request, *printer, progress).run();
}

std::shared_ptr<Options> add_session_options(CLI::App &command) {
    auto options = std::make_shared<Options>();
    Request &request = options->request;
    command.add_option("--device", request.device, "The device's IPv4 address or name")
        ->type_name("ADDRESS")
        ->required();
    command
        .add_option("--device-port", request.device_port,
                    "UDP port on which the device takes commands")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command
        .add_option("--listen", request.listen,
                    "TCP port for the device's connection; 0: any free one")
        ->type_name("PORT")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command
        .add_option("--sequence", request.sequence,
                    "Number of the run's first message; 0: the device counts")
        ->type_name("N")
        ->check(CLI::Range(0, INT_MAX))
        ->capture_default_str();
    command
        .add_option("--timeout", options->timeout,
                    "Longest silence of the device; a slow collector is silent too")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    command
        .add_option("--resend", request.resend,
                    "How often the command is repeated while nobody connects")
        ->type_name("N")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    add_format_options(command, options->format);
    command.callback([options] { run(*options); });
    return options;
}

std::string footer(const char *example) {
    return std::string("Example:\n  ") + example + "\n\n" + formats_help + "\n\n" + behaviour_help +
           "\n\n" + exit_help;
}

} // namespace

void add_collect(CLI::App &app) {
    CLI::App &command = *app.add_subcommand("collect", "Ask a device for its data and print it");
    const auto options = add_session_options(command);
    command.add_option("--command", options->request.command, "The number that the collectors get")
        ->type_name("0|1|2")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    command.footer(footer("dtctl collect --device 192.168.1.20 --json > data.jsonl"));
}

void add_selftest(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("selftest", "Let a device test itself and print the results");
    add_session_options(command)->request.command = dt::decode::wire::selftest_command;
    command.footer(footer("dtctl selftest --device 192.168.1.20 --timeout 60"));
}

} // namespace dtctl
