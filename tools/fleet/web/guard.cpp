#include "fleet/web/guard.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace dtfleet {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool is_same_name(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

// In a time that tells nothing of where they differ.
bool is_same_secret(std::string_view given, std::string_view secret) {
    unsigned difference = given.size() == secret.size() ? 0 : 1;
    for (size_t i = 0; i < secret.size(); ++i)
        difference |= static_cast<unsigned char>((i < given.size() ? given[i] : '\0') ^ secret[i]);
    return difference == 0;
}

std::string_view without_port(std::string_view host) {
    const size_t colon = host.rfind(':');
    if (colon == std::string_view::npos) return host;
    const std::string_view port = host.substr(colon + 1);
    return std::all_of(port.begin(), port.end(), is_digit) ? host.substr(0, colon) : host;
}

} // namespace

Guard::Guard(std::vector<std::string> hosts, std::string token)
    : hosts_(std::move(hosts)), token_(std::move(token)) {
    hosts_.insert(hosts_.end(), {"localhost", "127.0.0.1"});
}

bool Guard::is_our_name(const std::string &host) const {
    return std::any_of(hosts_.begin(), hosts_.end(), [&](const std::string &name) {
        return is_same_name(name, without_port(host));
    });
}

std::optional<Answer> Guard::refuse(const Request &request) const {
    if (!is_our_name(request.host))
        return Answer{421, "this is not served under that name; web.hosts lists those that are\n"};
    if (!token_.empty() && !is_same_secret(request.token, token_))
        return Answer{401, "the token, please\n"}.with(
            "WWW-Authenticate", "Basic realm=\"dtfleet\", charset=\"UTF-8\"");
    return std::nullopt;
}

} // namespace dtfleet
