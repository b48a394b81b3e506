// The subcommands on collections. Each adds its options to the program and runs when it is chosen.
#pragma once

namespace CLI {
class App;
} // namespace CLI

namespace dtctl {

void add_collect(CLI::App &app);
void add_selftest(CLI::App &app);
void add_decode(CLI::App &app);

} // namespace dtctl
