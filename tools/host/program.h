// What every host program does around its own work.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace dtctl {

// One line on standard error, behind the program's name; nobody can be told when that fails.
void complain(const std::string &program, const std::string &text);

// Parses the command line, which runs the command's callback, and returns the program's status.
// What they throw becomes one line: usage errors, Failure, and any other exception.
int run_program(CLI::App &app, int argc, char **argv);

} // namespace dtctl
