// dtctl collect and dtctl selftest: the same session with another command.
#include "dtctl/collect/commands.h"
#include "dtctl/collect/session.h"
#include "dtctl/output/options.h"
#include "host/failure.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <string>
#include <thread>

namespace dtctl {
namespace {

struct Options {
    Request request;
    double timeout = 10;
    double deadline = 0;
    size_t max_value = default_mebibytes;
    double watch = 0; // seconds from run to run; 0: one run
    OutputOptions output;
};

constexpr const char *behaviour_help =
    R"(The command goes out as one datagram that may get lost, and a device that is busy
answers late. So it is repeated at even steps of the time-out until the device connects.
A device that got it twice tries a second run later, finds nobody listening, and notes
that in its log; --resend 0 sends it once only.

Who connects from another address than --device is turned away. A device that has several
and answers from another one is taken with --any-address: its first message must carry the
number of the command, --sequence, for which dtctl then chooses one unless it is given.)";

constexpr const char *watch_help = R"(

With --watch the runs follow each other in one output. A run that fails is told on standard
error and the next one begins at its time. SIGINT or SIGTERM ends it, with the status 0.)";

constexpr const char *exit_help =
    R"(Exit status: 0 a whole run arrived; 1 the output cannot be written; 2 usage; 3 time-out or
deadline; 4 the device cannot be reached or refuses, or the port to listen on is taken; 5 what
arrived breaks the format or stops short (values before that are printed).)";

// A run that fails for the device's sake is told and left behind; the next may do better.
void try_run(const Request &request, Printer &printer) {
    Progress progress(::isatty(STDERR_FILENO) != 0);
    try {
        Session(request, printer, progress).run();
    } catch (const Failure &failure) {
        if (failure.code() == Exit::failed) throw;
        progress.note(failure.what());
    }
}

// Every value that was printed is out: a signal may end the program anywhere.
[[noreturn]] void watch(const Request &request, Printer &printer, Clock::duration interval) {
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, [](int) { ::_exit(static_cast<int>(Exit::success)); });
    }
    auto next = Clock::now();
    for (;;) {
        try_run(request, printer);
        next = std::max(next + interval, Clock::now());
        std::this_thread::sleep_until(next);
    }
}

void run(const Options &options) {
    Request request = options.request;
    request.timeout = milliseconds_of(options.timeout);
    request.deadline = milliseconds_of(options.deadline);
    request.max_value = options.max_value << 20;
    const auto interval = milliseconds_of(options.watch);
    const Stream out = open_output(options.output.path);
    const auto printer = make_printer(options.output, out.get());
    if (options.watch > 0) watch(request, *printer, interval);
    Progress progress(::isatty(STDERR_FILENO) != 0);
    Session(request, *printer, progress).run();
}

Options &add_session_options(Command &command) {
    Options &options = command.runs(run);
    Request &request = options.request;
    command.option("--device", "ADDRESS", request.device, "The device's IPv4 address or name")
        .required();
    command
        .number("--device-port", "PORT", request.device_port, 1, 65535,
                "UDP port on which the device takes commands")
        .shows_default();
    command.flag("--any-address", request.any_address,
                 "Take the device's connection from any address, by the command's number");
    command
        .number("--listen", "PORT", request.listen, 0, 65535,
                "TCP port for the device's connection; 0: any free one")
        .shows_default();
    command
        .number("--sequence", "N", request.sequence, 0, INT_MAX,
                "Number of the run's first message; 0: the device counts")
        .shows_default();
    command
        .number("--timeout", "SECONDS", options.timeout, 0.1, 86400,
                "Longest wait for each whole message; a slow collector makes it long")
        .shows_default();
    command.number("--deadline", "SECONDS", options.deadline, 0.1, 604800,
                   "Longest run, from the command to its end; unlimited unless given");
    command
        .number("--resend", "N", request.resend, 0, 100,
                "How often the command is repeated while nobody connects")
        .shows_default();
    command
        .number("--max-value", "MIB", options.max_value, 1, max_mebibytes,
                "Longest string or buffer")
        .shows_default();
    add_output_options(command, options.output);
    add_times_option(command, options.output);
    return options;
}

std::string footer(const char *examples, const char *more = "") {
    return std::string("Examples:\n  ") + examples + "\n\n" + formats_help + "\n\n" +
           behaviour_help + more + "\n\n" + exit_help;
}

} // namespace

void add_collect(Command &program) {
    Command command = program.command("collect", "Ask a device for its data and print it");
    Options &options = add_session_options(command);
    command
        .number("--command", "N", options.request.command, 0, 2,
                "The number that the collectors get")
        .shows_default();
    command.number("--watch", "SECONDS", options.watch, 0.1, 604800,
                   "Repeat, from run to run so many seconds, until interrupted");
    command.footer(footer("dtctl collect --device 192.168.1.20\n"
                          "  dtctl collect --device pump7.local --json --output data.jsonl\n"
                          "  dtctl collect --device 192.168.1.20 --watch 60 --times --csv",
                          watch_help));
}

void add_selftest(Command &program) {
    Command command = program.command("selftest", "Let a device test itself and print the results");
    add_session_options(command).request.command = dt::decode::wire::selftest_command;
    command.footer(footer("dtctl selftest --device 192.168.1.20 --timeout 60\n"
                          "  dtctl selftest --device 192.168.1.20 --json | grep '\"value\":1'"));
}

} // namespace dtctl
