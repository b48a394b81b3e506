// Adds the subcommand's options to the program; it runs when it is chosen.
#pragma once

#include "host/command.h"

namespace dtctl {

void add_config(Command &program);

} // namespace dtctl
