// dtctl fcm: shows the fault log file.
#include "dtctl/faults/command.h"

#include "dtctl/faults/file.h"
#include "dtctl/output/options.h"

#include <string>

namespace dtctl {
namespace {

struct Options {
    std::string path;
    OutputOptions output;
};

constexpr const char *exit_help =
    R"(Exit status: 0 the whole file was shown; 1 the file cannot be read or the output not be
written; 2 usage; 5 the file is damaged or stops short (all before that is shown, and
the byte and the reason are told on standard error).)";

void run(const Options &options) {
    const Stream out = open_output(options.output.path, options.path);
    const auto printer = make_fault_printer(options.output, out.get());
    show_fault_log(options.path, *printer);
}

} // namespace

void add_fcm(Command &program) {
    Command command = program.command("fcm", "Show a device's fault log file");
    Options &options = command.runs(run);
    command.argument("FILE", options.path, "The file, as the device wrote it; -: standard input");
    const Exclusive others = add_output_options(command, options.output);
    command
        .flag(
            "--html", [&options] { options.output.format = Format::html; },
            "One page to look at, to search and to filter")
        .excludes(others.csv)
        .excludes(others.json);
    command.footer(std::string("Examples:\n  dtctl fcm fcm.log\n"
                               "  dtctl fcm fcm.log --json --output faults.jsonl\n"
                               "  dtctl fcm --html fcm.log > faults.html\n\n") +
                   fault_formats_help + "\n\n" + exit_help);
}

} // namespace dtctl
