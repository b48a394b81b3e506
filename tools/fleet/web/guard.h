// Who is let in: those that call us by a name of ours and, where there is a token, know it.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/web/exchange.h"

#include <netinet/in.h>

#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

// Where the page listens, from "ADDRESS:PORT". Throws dtctl::Failure.
sockaddr_in web_address(const std::string &bind);

// The token in a file: 16 to 1000 visible characters, spaces around them left out. Throws
// dtctl::Failure.
std::string read_token(const std::string &path);

class Guard {
public:
    // No token: all may look. A page of another site that gives its own name our address is kept
    // out by the names.
    Guard(std::vector<std::string> hosts, std::string token);

    // The answer to those who may not see what they ask for.
    std::optional<Answer> refuse(const Request &request) const;

private:
    bool is_our_name(const std::string &host) const;

    std::vector<std::string> hosts_;
    std::string token_;
};

} // namespace dtfleet
