// The fleet as its database has it, for the commands that look.
#pragma once

#include "fleet/commands/config.h"
#include "fleet/store/store.h"
#include "fleet/store/upkeep.h"
#include "host/progress.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dtfleet {

struct Fleet {
    // Opens the database of the configuration that the rule finds. Throws dtctl::Failure when there
    // is none yet.
    explicit Fleet(const std::string &given);

    // The device of that name; throws dtctl::Failure when there is none.
    DeviceState device(const std::string &name) const;

    // Those in one of the groups or, without any, all.
    std::vector<DeviceState> devices_in(const std::vector<std::string> &groups) const;

    std::string file;
    Inventory settings; // without devices
    std::unique_ptr<Reader> reader;
};

// Whether the key is meant by a number, or by the name that the configuration gives it.
bool is_called(const Series &series, const std::string &key);

// The path of the fleet's database; throws dtctl::Failure when there is none yet.
std::string existing_database(const Inventory &settings, const std::string &file);

// Has the running service do it or, when none runs, does it to the database here. Returns the
// answer of the one or the other. given: the configuration, as for Fleet.
nlohmann::json change(const std::string &given, const nlohmann::json &request,
                      const std::function<nlohmann::json(Store &)> &here);

// How far long work on the database has come, on standard error if that is a terminal.
class Percent {
public:
    explicit Percent(std::string what);

    Advance advance();

private:
    std::string what_;
    uint64_t done_ = 0;
    uint64_t all_ = 0;
    dtctl::ProgressLine line_;
};

} // namespace dtfleet
