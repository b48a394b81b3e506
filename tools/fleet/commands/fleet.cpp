#include "fleet/commands/fleet.h"

#include "fleet/engine/control.h"
#include "fleet/service/service.h"
#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

bool is_in_one(const DeviceState &device, const std::vector<std::string> &groups) {
    return std::any_of(groups.begin(), groups.end(), [&](const std::string &group) {
        return std::find(device.groups.begin(), device.groups.end(), group) != device.groups.end();
    });
}

} // namespace

Fleet::Fleet(const std::string &given) : file(config_file(given)), settings(fleet_settings(file)) {
    reader = open_reader(existing_database(settings, file));
}

DeviceState Fleet::device(const std::string &name) const {
    if (auto found = reader->device(name)) return *found;
    throw Failure(Exit::usage, fmt::format("there is no device '{}'", dtctl::escape(name)));
}

std::vector<DeviceState> Fleet::devices_in(const std::vector<std::string> &groups) const {
    std::vector<DeviceState> devices = reader->devices();
    if (!groups.empty())
        std::erase_if(devices,
                      [&](const DeviceState &device) { return !is_in_one(device, groups); });
    return devices;
}

bool is_called(const Series &series, const std::string &key) {
    return std::to_string(series.key) == key || series.name == key;
}

std::string existing_database(const Inventory &settings, const std::string &file) {
    std::string path = database_path(settings, file);
    std::error_code trouble;
    if (is_address(path) || std::filesystem::exists(path, trouble)) return path;
    if (trouble)
        throw Failure(Exit::failed, fmt::format("cannot read {}: {}", path, trouble.message()));
    throw Failure(Exit::failed, fmt::format("there is no database {} yet: dtfleet run makes it",
                                            dtctl::escape(path)));
}

nlohmann::json change(const std::string &given, const nlohmann::json &request,
                      const std::function<nlohmann::json(Store &)> &here) {
    const std::string file = config_file(given);
    const Inventory settings = fleet_settings(file);
    if (const auto answer = request_if_running(control_path(settings, file), request)) {
        if (answer->contains("error")) throw Failure(Exit::broken, answer->value("error", ""));
        return *answer;
    }
    return here(*open_store(existing_database(settings, file), settings.retention));
}

Percent::Percent(std::string what)
    : what_(std::move(what)), line_("dtfleet", ::isatty(STDERR_FILENO) != 0, [this] {
          return fmt::format("{} % {}", all_ == 0 ? 0 : done_ * 100 / all_, what_);
      }) {}

Advance Percent::advance() {
    return [this](uint64_t done, uint64_t all) {
        done_ = done;
        all_ = all;
        line_.update();
    };
}

} // namespace dtfleet
