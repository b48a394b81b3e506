// What the page asks for, as JSON. Belongs to the thread that reads the database.
#pragma once

#include "fleet/engine/snapshot.h"
#include "fleet/store/store.h"
#include "fleet/web/exchange.h"
#include "fleet/web/fleet_list.h"

#include <functional>
#include <memory>

namespace dtfleet {

using OpenReader = std::function<std::unique_ptr<Reader>()>;

// What of the inventory the page goes by.
struct WebRules {
    Seconds run_limit{};
    std::vector<std::string> metric_groups;
};

class Api {
public:
    // Tags begin with `edition`, which another start of the service makes another one.
    Api(OpenReader open, std::string edition)
        : open_(std::move(open)), edition_(std::move(edition)) {}

    // Never throws: what goes wrong is an answer, too.
    Answer answer(const Request &request, const WebRules &rules, const Snapshot &snapshot);

private:
    struct Call; // a request with what belongs to it
    using Route = Answer (Api::*)(const Call &);
    static Route route_of(const std::string &path);

    Answer metrics(const Call &call);
    Answer fleet(const Call &call);
    Answer device(const Call &call);
    Answer values(const Call &call);
    Answer points(const Call &call);
    Answer runs(const Call &call);
    Answer logs(const Call &call);
    Answer log(const Call &call);
    Answer faults(const Call &call);

    // Makes an answer of the device unless the browser has that of this version of the database
    // already.
    template <typename Make> Answer unless_known(const Call &call, Make make);
    Reader &reader();
    void renew_list(const Call &call);

    OpenReader open_;
    std::string edition_;
    std::unique_ptr<Reader> reader_;
    FleetList list_;
    int64_t list_version_ = -1;
    Time list_time_{};
};

} // namespace dtfleet
