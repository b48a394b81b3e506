// Options on a command line.
#pragma once

#include <CLI/CLI.hpp>

namespace dtctl {

// The option takes numbers within the limits, which help and errors show plainly.
void limit(CLI::Option &option, double low, double high);

// Adds an option whose value is a number.
template <typename Number> CLI::Option &add_number(CLI::App &command, const char *name,
                                                   const char *type, Number &number, double low,
                                                   double high, const char *help) {
    CLI::Option &option = *command.add_option(name, number, help)->type_name(type);
    limit(option, low, high);
    return option;
}

} // namespace dtctl
