#include "dtctl/collect/commands.h"
#include "dtctl/config/command.h"
#include "dtctl/faults/command.h"
#include "dtctl/output/output.h"
#include "host/failure.h"
#include "host/text.h"
#include "host/usage.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

using dtctl::Exit;

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

// One line; nobody can be told when standard error fails.
void complain(const std::string &text) {
    const std::string name = dtctl::shows_colours(stderr) ? dtctl::bold("dtctl:") : "dtctl:";
    (void)std::fprintf(stderr, "%s %s\n", name.c_str(), text.c_str());
}

Exit run(int argc, char **argv) {
    CLI::App app(
        "Talks with devices: collects their data, shows their fault logs, answers with settings.");
    app.name("dtctl");
    app.require_subcommand(1);
    app.set_version_flag("--version", "dtctl " DTCTL_VERSION, "Print the version and exit");
    app.footer(footer);
    dtctl::add_collect(app);
    dtctl::add_selftest(app);
    dtctl::add_decode(app);
    dtctl::add_fcm(app);
    dtctl::add_config(app);
    const std::vector<std::string> words = dtctl::words_of(argc, argv);
    try {
        dtctl::parse_words(app, words);
    } catch (const CLI::Success &help) {
        app.exit(help);
        if (!std::cout.flush()) throw dtctl::Failure(Exit::failed, "cannot write the output");
    } catch (const CLI::ParseError &error) {
        complain(dtctl::escape(dtctl::usage_error(app, words, error)));
        return Exit::usage;
    }
    return Exit::success;
}

// A socket must not get the number of a standard stream that is closed: output would reach the
// device. Opened for reading, so that writing stays an error.
void occupy_standard_streams() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) fd = ::open("/dev/null", O_RDONLY);
    if (fd >= 0) ::close(fd);
}

} // namespace

int main(int argc, char **argv) {
    occupy_standard_streams();
    // A reader that goes away is seen at the write.
    std::signal(SIGPIPE, SIG_IGN);
    Exit code = Exit::failed;
    try {
        code = run(argc, argv);
    } catch (const dtctl::Failure &failure) {
        if (*failure.what() != '\0') complain(failure.what());
        code = failure.code();
    } catch (const std::exception &error) {
        complain(error.what());
    }
    return static_cast<int>(code);
}
