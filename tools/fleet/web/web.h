// The page, its data, the metrics and the two answers about the service's health.
#pragma once

#include "fleet/web/api.h"
#include "fleet/web/guard.h"
#include "fleet/web/server.h"

#include <mutex>

namespace dtfleet {

class Web {
public:
    // `file` is the inventory's: relative paths in it begin at its directory. The reader is opened
    // when it is first needed, and used by one thread of this alone. The board must outlive this.
    // Throws dtctl::Failure for an address that cannot be bound to, or that others can reach
    // without a token.
    Web(const Inventory &inventory, const std::string &file, const Board &board, OpenReader open,
        const WebBounds &bounds = {});

    // What of another inventory needs no restart: all but address and token.
    void take_inventory(const Inventory &inventory);

    uint16_t port() const { return server_.port(); }

private:
    std::optional<Answer> answer_at_once(const Request &request) const;
    Answer answer_later(const Request &request);

    const Board &board_;
    std::string token_;
    mutable std::mutex mutex_; // of the two below
    Guard guard_;
    WebRules rules_;
    Api api_;
    Server server_; // last: its threads use all of the others
};

} // namespace dtfleet
