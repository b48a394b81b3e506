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

namespace {

StoredValue value_of(uint32_t command, const Entry &entry, const ReadRow &read_row) {
    switch (entry.form) {
    case Entry::Form::number:
        return {StoredValue::Form::number, entry.number, {}};
    case Entry::Form::bytes:
        return {StoredValue::Form::bytes, 0, entry.bytes};
    case Entry::Form::row:
        return read_row(command, entry);
    case Entry::Form::gone:
        break;
    }
    return {};
}

} // namespace

std::vector<LatestValue> latest_in(const std::vector<CommandState> &states, int64_t device,
                                   uint32_t command, const ReadRow &read_row) {
    std::vector<LatestValue> values;
    const CommandState *found = state_for(states, command);
    if (!found) return values;
    for (const Entry &entry : found->state.entries)
        values.push_back({device, entry.series, entry.ordinal, entry.time,
                          value_of(found->command, entry, read_row)});
    return values;
}

} // namespace dtfleet
