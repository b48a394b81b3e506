// What operators ask of the running service through its control socket.
#pragma once

#include "fleet/engine/control.h"
#include "fleet/engine/engine.h"
#include "fleet/service/sharing.h"
#include "fleet/service/witness.h"
#include "fleet/store/writer.h"

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>
#include <vector>

namespace dtfleet {

// One JSON object a request, named by its first key:
//   {"ask": DEVICE, "selftest": true}    -> {"run", "outcome", "reason"}, when the run has ended
//   {"pause": DEVICE or GROUP, "until": microseconds since 1970, 0: go on} -> {"paused": devices}
//   {"rename": DEVICE, "to": NAME}       -> {"done": true}
//   {"forget": DEVICE}, {"accept": DEVICE}, {"accept_clock": true} -> {"done": true}
//   {"back_up": absolute name of a file that is not there} -> {"done": true}
//   {"discover": broadcast address, "seconds": up to 60} -> {"open": runs that are open there};
//                                           with none, none begins there for so long
// and {"error": a sentence} for what cannot be done.
class Operators {
public:
    // All of them must outlive it.
    Operators(const std::shared_ptr<const Inventory> &inventory, Engine &engine, Sharing &sharing,
              Writer &writer, Witness &witness)
        : inventory_(inventory), engine_(engine), sharing_(sharing), writer_(writer),
          witness_(witness) {}

    // False when it is none of these requests.
    bool answer(const nlohmann::json &request, const Control::Reply &reply);

private:
    using Act = void (Operators::*)(const nlohmann::json &request, const Control::Reply &reply);
    struct Command {
        const char *key;
        Act act;
    };
    static const Command commands[];

    void ask(const nlohmann::json &request, const Control::Reply &reply);
    void pause(const nlohmann::json &request, const Control::Reply &reply);
    void rename(const nlohmann::json &request, const Control::Reply &reply);
    void forget(const nlohmann::json &request, const Control::Reply &reply);
    void accept(const nlohmann::json &request, const Control::Reply &reply);
    void accept_clock(const nlohmann::json &request, const Control::Reply &reply);
    void back_up(const nlohmann::json &request, const Control::Reply &reply);
    void copy_on(const std::string &file, const Control::Reply &reply);
    void discover(const nlohmann::json &request, const Control::Reply &reply);
    std::vector<std::string> devices_of(const std::string &name) const;

    const std::shared_ptr<const Inventory> &inventory_; // the newest
    Engine &engine_;
    Sharing &sharing_;
    Writer &writer_;
    Witness &witness_;
};

} // namespace dtfleet
