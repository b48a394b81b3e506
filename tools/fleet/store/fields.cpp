#include "fleet/store/fields.h"

#include "decode/wire.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace dtfleet {

using dt::decode::wire::selftest_command;

Outcome outcome_of(int64_t number) {
    const bool known = number >= 0 && number < static_cast<int64_t>(outcomes);
    return known ? static_cast<Outcome>(number) : Outcome::malformed;
}

dt::decode::Kind type_of(int64_t number) {
    using dt::decode::Kind;
    return static_cast<Kind>(std::clamp<int64_t>(number, static_cast<int64_t>(Kind::int32),
                                                 static_cast<int64_t>(Kind::buffer)));
}

RunId run_id(std::string_view bytes) {
    RunId id{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), id.size()), id.begin());
    return id;
}

std::vector<std::string> groups_of(std::string_view text) {
    std::vector<std::string> groups;
    if (text == "[]") return groups;
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    for (const nlohmann::json &group : parsed)
        if (group.is_string()) groups.push_back(group.get<std::string>());
    return groups;
}

std::string text_of(const std::vector<std::string> &groups) {
    return nlohmann::json(groups).dump();
}

const CommandState *state_for(const std::vector<CommandState> &states, uint32_t command) {
    const CommandState *newest = nullptr;
    for (const CommandState &one : states) {
        if (one.command == command) return &one;
        if (command != 0 || one.command == selftest_command) continue;
        if (!newest || one.state.time > newest->state.time) newest = &one;
    }
    return newest;
}

} // namespace dtfleet
