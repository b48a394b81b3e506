// The running service: the engine in its loop, the commands that reach it, and where runs go.
#pragma once

#include "fleet/engine/control.h"
#include "fleet/engine/engine.h"
#include "fleet/engine/journal.h"
#include "fleet/service/notify.h"
#include "fleet/service/operators.h"
#include "fleet/service/reloader.h"
#include "fleet/service/sharing.h"
#include "fleet/service/witness.h"
#include "fleet/store/writer.h"
#include "fleet/web/web.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

// The inventory of the file and, where its database is on a server, of that database; which has
// none yet when its number is 0. Throws dtctl::Failure with all mistakes, a line each, Unavailable.
Inventory checked_inventory(const std::string &path);

// The socket of the service that this inventory makes.
std::string control_path(const Inventory &inventory, const std::string &file);

// Its database: a file, beside the inventory's unless its path begins at the root, or an address.
std::string database_path(const Inventory &inventory, const std::string &file);

class Service {
public:
    // The file is read, and read again on request. Throws dtctl::Failure for its mistakes, when
    // a port or the control socket is taken, and when the database can never be used.
    explicit Service(std::string file);

    // Until SIGINT or SIGTERM; SIGHUP reads the inventory again. While the database cannot be used
    // nobody is asked. Throws dtctl::Failure when it turns out that it never can.
    void run();

private:
    std::unique_ptr<Store> open_database(const std::string &path, const Retention &retention);
    void restore();
    void open_web();
    void check_descriptors();
    std::string devices() const;
    void turn(Time time);
    void tick(Time time);
    Snapshot snapshot(Time time) const;
    void take_signals();
    void reload();
    void follow();
    void take_loaded(Loaded loaded);
    void refuse_loaded(const Loaded &loaded);
    void finish_taking();
    void finish_reload(const nlohmann::json &answer);
    void answer(const nlohmann::json &request, const Control::Reply &reply);
    nlohmann::json status() const;

    std::string file_;
    dtctl::Fd signals_; // first: while all else is read and opened they wait
    std::shared_ptr<const Inventory> inventory_;
    Journal journal_;
    Hindrance hindrance_{journal_};
    Notify notify_;
    Loop loop_;
    Control control_; // before all that another service at work would not let us have
    std::vector<DeviceState> known_; // as the last service left them, until they are restored
    Sharing sharing_;                // leases go back after the runs that were made under them
    Writer writer_;
    Witness witness_;
    Engine engine_;
    Operators operators_;
    Reloader reloader_;
    Board board_;
    std::optional<Web> web_;
    std::vector<Control::Reply> reload_replies_; // of who waits for its end
    bool is_reloading_ = false;
    int64_t refused_ = -1; // number of the inventory in the database that has mistakes
    std::string mistakes_; // that were told last
    bool is_stopping_ = false;
    Time next_tick_{};
};

} // namespace dtfleet
