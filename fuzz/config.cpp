// Lookups and the replies to them.
#include "input.h"

#include "support/network.h"

#include <cstdlib>
#include <dt/net.h>

namespace {

constexpr size_t longest = 999; // of a request and of a reply

std::string reply;

void expect_request() { network.replies = {{"10.1.1.1", 8999, reply}}; }

// Whether a lookup's reply counts. The server must have been asked, unless the request is too long.
bool counts(const std::string &request) {
    const bool fits = request.size() <= longest;
    assert(network.sent.size() == fits);
    assert(!fits || network.sent[0].bytes == request);
    network.sent.clear();
    return fits && !reply.empty();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    network.simulated = true;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    Bytes group = input.text(), key = input.text(), fallback = input.text();
    const int32_t number = input.number<int32_t>();
    reply = input.rest().string();
    const std::string said = reply.substr(0, longest).c_str();
    const std::string question = std::string("=>config ") + group.text() + " " + key.text() + " ";

    Bytes value(std::max<size_t>(1000, fallback.size())); // as promised
    expect_request();
    DTConfig_GetString(group.text(), key.text(), fallback.text(), value.text());
    assert(value.text() == (counts(question + fallback.text()) ? said : fallback.text()));
    expect_request();
    const int32_t found = DTConfig_GetInt(group.text(), key.text(), number);
    const int64_t said_number = strtoll(said.c_str(), nullptr, 0);
    assert(found ==
           static_cast<int32_t>(counts(question + std::to_string(number)) ? said_number : number));
    network.waits.clear();
    return 0;
}
