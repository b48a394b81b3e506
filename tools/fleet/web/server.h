// The page's HTTP server. One thread serves all connections and never waits for the database; what
// does is done by a second one, a request after the other.
#pragma once

#include "fleet/web/connections.h"
#include "fleet/web/exchange.h"
#include "host/fd.h"

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

struct MHD_Daemon;

namespace dtfleet {

class Server {
public:
    struct Handlers {
        // Called in the first thread; nothing: the second one must answer.
        std::function<std::optional<Answer>(const Request &)> at_once;
        std::function<Answer(const Request &)> later;
    };

    // Port 0: any free one. Throws dtctl::Failure when the address cannot be bound to.
    Server(const sockaddr_in &address, const WebBounds &bounds, Handlers handlers);

    // Lets the answer that is being made end, and drops the others.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    uint16_t port() const { return port_; }

private:
    struct Exchange;
    struct Calls; // what libmicrohttpd calls

    void serve();
    void wake();
    int patience() const;
    bool answer(Exchange &exchange);
    bool finish(Exchange &exchange);
    bool hand_over(Exchange &exchange);
    Exchange *next_reading();
    void read();
    void stop_reading();

    Handlers handlers_;
    WebBounds bounds_;
    Connections connections_;
    uint16_t port_ = 0;
    dtctl::Fd wake_;
    std::atomic<bool> is_over_ = false;
    std::unique_ptr<MHD_Daemon, void (*)(MHD_Daemon *)> daemon_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Exchange *> readings_;
    bool stopping_ = false;

    std::thread reading_;
    std::thread serving_;
};

} // namespace dtfleet
