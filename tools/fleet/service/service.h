// The running service: the engine in its loop, the commands that reach it, and where runs go.
#pragma once

#include "fleet/engine/control.h"
#include "fleet/engine/engine.h"
#include "fleet/engine/identities.h"
#include "fleet/engine/journal.h"
#include "fleet/service/notify.h"
#include "fleet/service/reloader.h"

#include <memory>
#include <string>
#include <vector>

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
    // Sees each run on its way.
    class Witness final : public Outlet {
    public:
        Witness(Outlet &outlet, Journal &journal) : outlet_(outlet), journal_(journal) {}
        bool has_room() const override { return outlet_.has_room(); }
        void put(RunRecord run) override;

        Troubles &troubles() { return troubles_; }
        Identities &identities() { return identities_; }

    private:
        Outlet &outlet_;
        Journal &journal_;
        Troubles troubles_{journal_};
        Identities identities_;
    };

    void turn(Time time);
    void tick(Time time);
    void take_signals();
    void reload();
    void take_loaded(Loaded loaded);
    void finish_reload(const nlohmann::json &answer);
    void answer(const nlohmann::json &request, const Control::Reply &reply);
    void ask(const nlohmann::json &request, const Control::Reply &reply);
    void hold(const nlohmann::json &request, const Control::Reply &reply);

    std::string file_;
    std::shared_ptr<const Inventory> inventory_;
    Journal journal_;
    Notify notify_;
    Witness witness_;
    Loop loop_;
    dtctl::Fd signals_;
    Engine engine_;
    Control control_;
    Reloader reloader_;
    Board board_;
    std::vector<Control::Reply> reload_replies_; // of who waits for its end
    bool is_reloading_ = false;
    bool is_stopping_ = false;
    Time next_tick_{};
};

} // namespace dtfleet
