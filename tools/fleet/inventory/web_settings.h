// Where the page listens, and who may see it.
#pragma once

#include "fleet/inventory/inventory.h"

#include <netinet/in.h>

#include <string>

namespace dtfleet {

// From "ADDRESS:PORT". Throws dtctl::Failure for anything else, and for an address that others can
// reach when no token is asked of them.
sockaddr_in web_address(const Inventory &inventory);

// What the token's file holds: 16 to 1000 visible characters, spaces around them left out; empty
// without such a file. `file` is the inventory's: a relative path begins at its directory. Throws
// dtctl::Failure.
std::string web_token(const Inventory &inventory, const std::string &file);

} // namespace dtfleet
