// What a device receives: commands, and replies to its lookups, through real sockets in a network
// of the fuzzer's own.
#include "input.h"

#include "support/network.h"

#include <arpa/inet.h>
#include <base/endpoint.h>
#include <dt/collect.h>
#include <dt/net.h>
#include <utility>

namespace {

constexpr size_t longest = 999; // of a request and of a reply

int32_t receiver, sender, server;
std::string reply, asked;

// Has its turn when the library begins to wait.
void answer() {
    char request[2 * longest], address[DTSOCK_ADDRESS_SIZE];
    uint32_t port;
    const int32_t count =
        DTSock_UDP_RecvMessage(server, address, &port, request, sizeof request - 1);
    assert(count > 0);
    asked.assign(request, static_cast<size_t>(count));
    const sockaddr_in device = dt::endpoint(inet_addr(address), static_cast<int32_t>(port));
    sendto(server, reply.data(), reply.size(), 0, dt::generic(&device), sizeof device);
}

// Whether a lookup's reply counts. The server must have been asked, unless the request is too long.
bool counts(const std::string &request) {
    const bool fits = request.size() <= longest;
    assert(std::exchange(asked, "") == (fits ? request : ""));
    return fits && !reply.empty();
}

void look_up(Input input) {
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
}

void command(const Bytes &datagram) {
    uint32_t sent[4] = {}; // length, command, sequence, port
    const size_t received = std::min(datagram.size(), sizeof sent);
    std::copy_n(datagram.data(), received, reinterpret_cast<uint8_t *>(sent));
    const bool valid = sent[0] == received && sent[1] <= 3;
    const ssize_t size = static_cast<ssize_t>(datagram.size());
    assert(send(sender, datagram.data(), datagram.size(), 0) == size);
    Bytes address(16); // as promised
    uint32_t command = 77, port = 88;
    const int32_t sequence = CollectClient_WaitFor(receiver, 1, 2, &command, address.text(), &port);
    assert(sequence == (valid ? static_cast<int32_t>(sent[2]) : -1));
    assert(command == (valid ? sent[1] : 77) && port == (valid ? sent[3] : 88));
    assert(address.text() == std::string(valid ? "127.0.0.1" : ""));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const std::string problem = enter_private_network();
    if (!problem.empty() || !freopen("/dev/null", "w", stdout)) abort();
    receiver = CollectClient_Init();
    sender = socket(AF_INET, SOCK_DGRAM, 0);
    server = DTSock_UDP_Create("0.0.0.0", 8999);
    network.peer = answer;
    const sockaddr_in device = dt::endpoint(htonl(INADDR_LOOPBACK), COLLECT_COMMAND_PORT);
    return connect(sender, dt::generic(&device), sizeof device);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    input.number() % 2 ? look_up(input) : command(input.rest());
    return 0;
}
