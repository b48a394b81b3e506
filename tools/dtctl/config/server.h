// Answers configuration requests until it is told to stop.
#pragma once

#include "dtctl/config/log.h"
#include "dtctl/config/settings.h"
#include "host/socket.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace dtctl {

struct ConfigOptions {
    std::string path;
    std::string address = "0.0.0.0"; // the only one that hears broadcasts
    uint16_t port = 0;               // 0: any free one
    bool echo_default = false;
};

class ConfigServer {
public:
    // Reads the settings and opens the port; throws Failure. SIGHUP, SIGINT and SIGTERM are blocked
    // from then on in this thread and those that it starts. log must outlive the server.
    ConfigServer(ConfigOptions options, std::FILE *log);

    // Returns on SIGINT and SIGTERM. SIGHUP reads the settings again; those that were there stay
    // when that fails. Throws Failure when nothing can be received any more.
    void run();

    uint16_t port() const { return local_port(socket_); }

private:
    bool pass();
    bool take_signal();
    void reload();
    void take_request();
    void send_answer(const std::string &datagram, const sockaddr_in &peer, std::string &log);

    ConfigOptions options_;
    ConfigLog log_;
    Settings settings_;
    Fd signals_;
    Fd socket_;
};

} // namespace dtctl
