// The running service: the engine in its loop, the commands that reach it, and where runs go.
#pragma once

#include "fleet/engine/control.h"
#include "fleet/engine/engine.h"

#include <optional>
#include <string>

namespace dtfleet {

// Reads an inventory. Throws dtctl::Failure with all its mistakes, a line each.
Inventory checked_inventory(const std::string &path);

// The socket of the service that this inventory makes.
std::string control_path(const Inventory &inventory, const std::string &file);

class Service {
public:
    // The file is read, and read again on request. Throws dtctl::Failure for its mistakes, and when
    // a port or the control socket is taken.
    Service(std::string file, Outlet &outlet);

    // Until SIGINT or SIGTERM; SIGHUP reads the inventory again.
    void run();

private:
    void take_signal();
    std::string reload();
    void answer(const nlohmann::json &request, const Control::Reply &reply);
    void ask(const nlohmann::json &request, const Control::Reply &reply);

    std::string file_;
    std::shared_ptr<const Inventory> inventory_;
    Loop loop_;
    dtctl::Fd signals_;
    Engine engine_;
    Control control_;
    bool stopping_ = false;
};

} // namespace dtfleet
