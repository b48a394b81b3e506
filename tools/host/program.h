// What every host program does around its own work.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace dtctl {

// One line on standard error, behind the program's name; nobody can be told when that fails.
void complain(const std::string &program, const std::string &text);

// What a program is and which commands it has: told to an app that has its name already.
using Describe = void (*)(CLI::App &app);

// Parses the command line, which runs the command's callback, and returns the program's status.
// What they throw becomes one line: usage errors, Failure, and any other exception.
int run_program(const char *name, Describe describe, int argc, char **argv);

} // namespace dtctl
