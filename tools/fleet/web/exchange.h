// A request and its answer, without the sockets.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dtfleet {

struct Request {
    std::string method;
    std::string path;
    std::string host;          // as the browser called us
    std::string token;         // from the Authorization header, of either kind
    std::string if_none_match; // tags, as they came
    bool has_body = false;
    std::vector<std::pair<std::string, std::string>> parameters;

    std::optional<std::string> parameter(std::string_view name) const {
        const auto found = std::find_if(parameters.begin(), parameters.end(),
                                        [&](const auto &one) { return one.first == name; });
        return found == parameters.end() ? std::nullopt : std::optional(found->second);
    }
};

struct Answer {
    unsigned status = 200;
    std::string body;
    std::string type = "text/plain; charset=utf-8";
    std::string tag{}; // names this state of what was asked for; empty: none
    std::vector<std::pair<const char *, std::string>> headers{};

    Answer with(const char *name, std::string value) && {
        headers.emplace_back(name, std::move(value));
        return std::move(*this);
    }
};

// Whether the browser has this very state already.
inline bool is_known(const Request &request, const std::string &tag) {
    return !tag.empty() && request.if_none_match.find('"' + tag + '"') != std::string::npos;
}

} // namespace dtfleet
