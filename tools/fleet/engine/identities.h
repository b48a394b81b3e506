// Who answers under a device's name: replaced hardware, another address, one identity twice.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/store/store.h"

#include <bitset>
#include <string>
#include <unordered_map>
#include <vector>

namespace dtfleet {

class Identities {
public:
    // What is known when the service starts, before its first inventory, has been reported already.
    void restore(const std::vector<DeviceState> &states);

    // What the inventory expects; what was accepted holds until it says something new.
    void take_inventory(const Inventory &inventory);

    // What is to be reported of this run, a line each; of a device that changes to and fro no more
    // than one an hour.
    std::vector<std::string> note(const RunRecord &run, Time time);

    // What was seen last is right.
    void accept(const std::string &device);
    void rename(const std::string &from, const std::string &to);

private:
    struct Known {
        std::optional<uint16_t> listed; // in the inventory
        std::optional<uint16_t> expected;
        std::optional<uint16_t> seen;
        std::string address; // that it connected from last
        Time quiet_until{};  // nothing is reported of it
    };

    std::string change(const RunRecord &run, Known &known);
    void note_twin(const std::string &device, uint16_t identity, std::vector<std::string> &reports);

    std::unordered_map<std::string, Known> devices_;
    std::unordered_map<uint16_t, std::string> owners_; // who showed an identity first
    std::bitset<65'536> twins_;                        // identities reported as shared
};

// As users read it: four hex digits, the first byte first.
std::string identity_text(uint16_t identity);

} // namespace dtfleet
