#include "host/program.h"

#include "host/failure.h"
#include "host/terminal.h"
#include "host/text.h"
#include "host/usage.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <vector>

namespace dtctl {
namespace {

Exit parse(const Program &program, int argc, char **argv) {
    CLI::App app(program.help, program.name);
    app.require_subcommand(1);
    app.set_version_flag("--version", fmt::format("{} {}", program.name, program.version),
                         "Print the version and exit");
    Command whole(app);
    program.add_commands(whole);
    const std::vector<std::string> words = words_of(argc, argv);
    try {
        parse_words(app, words);
    } catch (const CLI::Success &help) {
        app.exit(help);
        if (!std::cout.flush()) throw Failure(Exit::failed, "cannot write the output");
    } catch (const CLI::ParseError &error) {
        complain(program.name, escape(usage_error(app, words, error)));
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

void complain(const std::string &program, const std::string &text) {
    const std::string name = shows_colours(stderr) ? bold(program + ":") : program + ":";
    (void)std::fprintf(stderr, "%s %s\n", name.c_str(), text.c_str());
}

int run_program(const Program &program, int argc, char **argv) {
    occupy_standard_streams();
    // A reader that goes away is seen at the write.
    std::signal(SIGPIPE, SIG_IGN);
    Exit code = Exit::failed;
    try {
        code = parse(program, argc, argv);
    } catch (const Failure &failure) {
        if (*failure.what() != '\0') complain(program.name, failure.what());
        code = failure.code();
    } catch (const std::exception &error) {
        complain(program.name, error.what());
    }
    return static_cast<int>(code);
}

} // namespace dtctl
