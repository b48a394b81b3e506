// Lookups and the replies to them, by a real server in a network of the fuzzer's own.
#include "input.h"

#include "support/network.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <dt/net.h>
#include <sys/socket.h>

namespace {

constexpr size_t longest = 999; // of a request and of a reply

int32_t server;
std::string reply, asked;

// Has its turn when the library begins to wait.
void answer() {
    char request[2 * longest];
    sockaddr_in device = {};
    socklen_t length = sizeof device;
    auto *address = reinterpret_cast<sockaddr *>(&device);
    const ssize_t count = recvfrom(server, request, sizeof request, 0, address, &length);
    assert(count > 0);
    asked.assign(request, static_cast<size_t>(count));
    sendto(server, reply.data(), reply.size(), 0, address, length);
}

// Whether a lookup's reply counts. The server must have been asked, unless the request is too long.
bool counts(const std::string &request) {
    const bool fits = request.size() <= longest;
    assert(asked == (fits ? request : ""));
    asked.clear();
    return fits && !reply.empty();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const std::string problem = enter_private_network();
    server = DTSock_UDP_Create("0.0.0.0", 8999);
    network.peer = answer;
    if (!problem.empty() || server < 0) abort();
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
    DTConfig_GetString(group.text(), key.text(), fallback.text(), value.text());
    assert(value.text() == (counts(question + fallback.text()) ? said : fallback.text()));
    const int32_t found = DTConfig_GetInt(group.text(), key.text(), number);
    const int64_t said_number = strtoll(said.c_str(), nullptr, 0);
    assert(found ==
           static_cast<int32_t>(counts(question + std::to_string(number)) ? said_number : number));
    network.sent.clear();
    network.waits.clear();
    return 0;
}
