#pragma once

#include "dtctl/output/printer.h"

#include <string>

namespace dtctl {

// Prints the collections in a capture file ("-": standard input) as if they had been live, one
// after the other as they end; one breaks its format with a string or buffer of more than max_value
// bytes. Throws Failure when there is none or the capture is damaged, and for
// a collection that breaks its format or is not there as a whole; of several such, those before the
// last are told on standard error.
void replay(const std::string &path, size_t max_value, Printer &printer);

} // namespace dtctl
