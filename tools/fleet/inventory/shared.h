// What collectors of one database share of an inventory: devices, groups, series and retention.
// There it is a text in the form of a file.
#pragma once

#include "fleet/inventory/inventory.h"

#include <string>
#include <vector>

namespace dtfleet {

// A text in quotes, as files of the inventory have it.
std::string quoted(const std::string &text);

// That part of the inventory: read again, it is the same.
std::string shared_text(const Inventory &inventory);

// A file for that part alone: devices may stand beside the address of a database, and all else in
// it does not matter.
Loaded load_shared(const std::string &path);

// The same of the text; mistakes are said to be the database's.
Loaded load_shared_text(const std::string &text);

// What a collector works with: its own settings, and the shared part.
Inventory joined(Inventory own, Inventory shared);

// What makes the one inventory into the other.
struct InventoryChanges {
    std::vector<std::string> added; // devices
    std::vector<std::string> changed;
    std::vector<std::string> gone;
    std::vector<std::string> replanned; // of these, those that are asked at other times
    bool groups = false;
    bool series = false;
    bool retention = false;

    bool any() const {
        return groups || series || retention || !added.empty() || !changed.empty() || !gone.empty();
    }
};

InventoryChanges changes_between(const Inventory &before, const Inventory &after);

} // namespace dtfleet
