// Adds the subcommand's options to the program; it runs when it is chosen.
#pragma once

namespace CLI {
class App;
} // namespace CLI

namespace dtctl {

void add_config(CLI::App &app);

} // namespace dtctl
