#include "fleet/inventory/web_settings.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"

#include <fmt/format.h>

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

std::optional<sockaddr_in> parsed(const std::string &bind) {
    const size_t colon = bind.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    uint16_t port = 0;
    const char *end = bind.data() + bind.size();
    const auto [rest, error] = std::from_chars(bind.data() + colon + 1, end, port);
    address.sin_port = htons(port);
    const bool good = error == std::errc() && rest == end &&
                      ::inet_pton(AF_INET, bind.substr(0, colon).c_str(), &address.sin_addr) == 1;
    return good ? std::optional(address) : std::nullopt;
}

// From another machine nobody gets to it.
bool is_local(const sockaddr_in &address) {
    return (ntohl(address.sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
}

bool is_visible(char c) { return c > ' ' && c < 0x7F; }

std::string_view trimmed(std::string_view text) {
    constexpr const char *spaces = " \t\r\n";
    const size_t first = text.find_first_not_of(spaces);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

} // namespace

sockaddr_in web_address(const Inventory &inventory) {
    const auto address = parsed(inventory.web_bind);
    if (!address)
        throw Failure(Exit::broken,
                      fmt::format("the page's address must be like \"127.0.0.1:8098\", not \"{}\"",
                                  dtctl::escape(inventory.web_bind)));
    if (!is_local(*address) && inventory.web_token.empty())
        throw Failure(Exit::broken,
                      fmt::format("others can reach {}: `token` must name a file with a token that "
                                  "they have to know",
                                  inventory.web_bind));
    return *address;
}

std::string web_token(const Inventory &inventory, const std::string &file) {
    if (inventory.web_token.empty()) return "";
    const std::string path = beside(file, inventory.web_token);
    const std::string text = dtctl::read_whole_file(path);
    const std::string_view token = trimmed(text);
    if (token.size() < 16 || token.size() > 1000 ||
        !std::all_of(token.begin(), token.end(), is_visible))
        throw Failure(Exit::broken,
                      fmt::format("{} must hold a token of at least 16 characters without spaces",
                                  dtctl::escape(path)));
    return std::string(token);
}

} // namespace dtfleet
