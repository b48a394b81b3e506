#include "fleet/web/guard.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_visible(char c) { return c > ' ' && c < 0x7F; }

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

std::string_view trimmed(std::string_view text) {
    constexpr const char *spaces = " \t\r\n";
    const size_t first = text.find_first_not_of(spaces);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

} // namespace

sockaddr_in web_address(const std::string &bind) {
    const size_t colon = bind.rfind(':');
    const char *end = bind.data() + bind.size();
    uint16_t port = 0;
    if (colon != std::string::npos) {
        const auto [rest, error] = std::from_chars(bind.data() + colon + 1, end, port);
        if (error == std::errc() && rest == end) return dtctl::resolve(bind.substr(0, colon), port);
    }
    throw Failure(Exit::broken,
                  fmt::format("web.bind must be an address and a port like \"127.0.0.1:8098\", "
                              "not \"{}\"",
                              bind));
}

std::string read_token(const std::string &path) {
    const std::string text = dtctl::read_whole_file(path);
    const std::string_view token = trimmed(text);
    if (token.size() < 16 || token.size() > 1000 ||
        !std::all_of(token.begin(), token.end(), is_visible))
        throw Failure(
            Exit::broken,
            fmt::format("{} must hold a token of at least 16 characters without spaces", path));
    return std::string(token);
}

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
