// Who is let in: those that call us by a name of ours and, where there is a token, know it.
#pragma once

#include "fleet/web/exchange.h"

#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

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
