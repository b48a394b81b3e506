// What every host program does around its own work.
#pragma once

#include "host/command.h"

#include <string>

namespace dtctl {

// One line on standard error, behind the program's name; nobody can be told when that fails.
void complain(const std::string &program, const std::string &text);

// What a program is, and which commands it has.
struct Program {
    const char *name;
    const char *version;
    const char *help;
    void (*add_commands)(Command &program); // and the end of its help
};

// Parses the command line, runs the command that it chooses, and returns the program's status. What
// that throws becomes one line: usage errors, Failure, and any other exception.
int run_program(const Program &program, int argc, char **argv);

} // namespace dtctl
