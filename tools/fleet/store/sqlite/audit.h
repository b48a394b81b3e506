// Looks through a whole database for what cannot be.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/upkeep.h"

#include <string>
#include <vector>

namespace dtfleet::sqlite {

// Reads in slices, each a transaction of its own and well under a second, while others write.
class Audit {
public:
    // Both must outlive it.
    Audit(Database &database, const Advance &advance) : database_(database), advance_(advance) {}

    std::vector<std::string> complaints();

private:
    // Checks what lies behind the place, moves it on, and tells whether there is more.
    struct Place {
        int64_t device = 0, part = 0, number = 0;
    };
    using Slice = bool (Audit::*)(Place &place);

    void look(Slice slice);
    bool check_file(Place &place);
    bool check_numbers(Place &place);
    bool check_collections(Place &place);
    bool check_states(Place &place);
    bool check_sums(Place &place);
    bool check_logs(Place &place);
    void check_values(int64_t collection, int64_t first, int64_t count, int64_t end_before);
    void check_entries(int64_t device, const Statement &state);
    void complain(std::string text);
    bool is_full() const;

    Database &database_;
    const Advance &advance_;
    std::vector<std::string> complaints_;
};

} // namespace dtfleet::sqlite
