// In which form a command's results are wanted.
#pragma once

#include "host/output.h"
#include "host/text.h"

namespace dtctl {

enum class Format { table, json, csv, html };

// What the user asked for.
struct OutputOptions {
    Format format = Format::table;
    bool times = false; // say when each run began
    Cells cells = Cells::guarded;
    std::string path{}; // empty: standard output
};

} // namespace dtctl
