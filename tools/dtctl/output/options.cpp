#include "dtctl/output/options.h"

#include <CLI/CLI.hpp>

namespace dtctl {

CLI::Option *add_output_options(CLI::App &command, OutputOptions &output) {
    auto *json = command.add_flag_callback(
        "--json", [&output] { output.format = Format::json; }, "JSON lines instead of a table");
    auto *csv = command.add_flag_callback(
        "--csv", [&output] { output.format = Format::csv; }, "CSV instead of a table");
    command
        .add_flag_callback(
            "--csv-raw", [&output] { output.cells = Cells::raw; },
            "With --csv: leave cells that a spreadsheet would execute as they are")
        ->needs(csv);
    command.add_option("--output", output.path, "The file to write, instead of standard output")
        ->type_name("FILE")
        ->check([](const std::string &path) { return path.empty() ? "'' names no file" : ""; });
    return csv->excludes(json);
}

void add_times_option(CLI::App &command, OutputOptions &output) {
    command.add_flag("--times", output.times, "Say when each run began, in UTC");
}

} // namespace dtctl
