#include "dtctl/config/exchange.h"

#include "host/text.h"

#include <fmt/format.h>

namespace dtctl {
namespace {

constexpr std::string_view request_word = "=>config ";
constexpr size_t shown_of_malformed = 100;

struct ConfigRequest {
    std::string group;
    std::string key;
    std::string fallback;
};

std::string in_quotes(std::string_view bytes) { return '"' + escape(bytes) + '"'; }

// Takes what stands in front of the first blank, and the blank.
std::optional<std::string> take_word(std::string_view &rest) {
    const size_t blank = rest.find(' ');
    if (blank == rest.npos) return std::nullopt;
    const std::string word(rest.substr(0, blank));
    rest.remove_prefix(blank + 1);
    return word;
}

// null for a request that is well-formed, and then the request.
const char *parse(std::string_view bytes, size_t size, ConfigRequest &request) {
    if (!bytes.starts_with(request_word)) return "no configuration request";
    if (size > max_config_request) return "longer than any device's request";
    if (bytes.find('\0') != bytes.npos) return "a zero byte";
    bytes.remove_prefix(request_word.size());
    const auto group = take_word(bytes);
    const auto key = take_word(bytes);
    if (!group || !key) return "a blank is missing";
    request = {*group, *key, std::string(bytes)};
    return nullptr;
}

ConfigAnswer answer_with(const std::string &request, const std::string &value, bool echoed) {
    const std::string sent = value.substr(0, max_config_answer);
    std::string log = fmt::format("{}: answered {}", request, in_quotes(sent));
    if (echoed) log += ", its default";
    if (sent.empty()) log += ", which a device takes for no answer";
    if (sent.size() < value.size())
        log += fmt::format(", the first {} of {} bytes", sent.size(), value.size());
    return {sent, log};
}

} // namespace

ConfigAnswer answer_config(std::string_view bytes, size_t size, const Settings &settings,
                           bool echo) {
    ConfigRequest request;
    if (const char *reason = parse(bytes, size, request)) {
        return {std::nullopt, fmt::format("malformed, no answer: {}: {} ({} bytes)", reason,
                                          in_quotes(bytes.substr(0, shown_of_malformed)), size)};
    }
    const std::string asked = fmt::format("{} {}, default {}", in_quotes(request.group),
                                          in_quotes(request.key), in_quotes(request.fallback));
    if (const std::string *value = settings.find(request.group, request.key))
        return answer_with(asked, *value, false);
    if (echo) return answer_with(asked, request.fallback, true);
    return {std::nullopt, asked + ": not set, no answer"};
}

} // namespace dtctl
