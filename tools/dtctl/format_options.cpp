#include "dtctl/commands.h"

#include <CLI/CLI.hpp>

namespace dtctl {

void add_format_options(CLI::App &command, Format &format) {
    auto *json = command.add_flag_callback(
        "--json", [&format] { format = Format::json; }, "JSON lines instead of a table");
    command
        .add_flag_callback(
            "--csv", [&format] { format = Format::csv; }, "CSV instead of a table")
        ->excludes(json);
}

} // namespace dtctl
