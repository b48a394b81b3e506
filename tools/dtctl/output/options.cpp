#include "dtctl/output/options.h"

namespace dtctl {

Exclusive add_output_options(Command &command, OutputOptions &output) {
    Option json = command.flag(
        "--json", [&output] { output.format = Format::json; }, "JSON lines instead of a table");
    Option csv = command.flag(
        "--csv", [&output] { output.format = Format::csv; }, "CSV instead of a table");
    command
        .flag(
            "--csv-raw", [&output] { output.cells = Cells::raw; },
            "With --csv: leave cells that a spreadsheet would execute as they are")
        .needs(csv);
    command.file("--output", output.path, "The file to write, instead of standard output");
    csv.excludes(json);
    return {json, csv};
}

void add_times_option(Command &command, OutputOptions &output) {
    command.flag("--times", output.times, "Say when each run began, in UTC");
}

} // namespace dtctl
