// What stands in columns of the databases, as the rest of the service knows it.
#pragma once

#include "fleet/store/state.h"
#include "fleet/store/store.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

// What stands in a database may be damaged, so no number is trusted to be an enumerator.
Outcome outcome_of(int64_t number);
dt::decode::Kind type_of(int64_t number);

RunId run_id(std::string_view bytes);

// A text of JSON.
std::vector<std::string> groups_of(std::string_view text);
std::string text_of(const std::vector<std::string> &groups);

// What a device's runs of one command brought last.
struct CommandState {
    uint32_t command = 0;
    State state;
};

// The state that answers for a command, if any: as Reader::latest.
const CommandState *state_for(const std::vector<CommandState> &states, uint32_t command);

// As Reader::latest; asks for a value that stands in a row of its own.
using ReadRow = std::function<StoredValue(uint32_t command, const Entry &entry)>;
std::vector<LatestValue> latest_in(const std::vector<CommandState> &states, int64_t device,
                                   uint32_t command, const ReadRow &read_row);

} // namespace dtfleet
