// What of a fault log file is new.
#pragma once

#include "fleet/store/store.h"

#include <span>
#include <vector>

namespace dtfleet {

// Which of the file's rows are stored already.
// stored: the device's, in the order in which it wrote them.
// is_behind: they have come from a newer file, too.
std::vector<bool> known_rows(std::span<const FaultRow> stored, const FaultFile &file,
                             bool is_behind);

} // namespace dtfleet
