// Logs as they are stored, line by line.
#pragma once

#include "fleet/store/logs.h"
#include "fleet/store/record.h"
#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

// A log that has arrived, of which much is stored already.
struct Log {
    int64_t device = 0;
    int64_t series = 0;
    uint32_t command = 0;
    int64_t collection = 0; // that brought it, and its time
    Microseconds time = 0;
    std::vector<Line> lines;
};

void store_log(Database &database, const Log &log);

} // namespace dtfleet::sqlite
