// Command datagrams, received through the real socket in a network of the fuzzer's own.
#include "input.h"

#include "support/network.h"

#include <base/endpoint.h>
#include <dt/collect.h>

namespace {

int32_t receiver, sender;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const std::string problem = enter_private_network();
    if (!problem.empty() || !freopen("/dev/null", "w", stdout)) abort();
    receiver = CollectClient_Init();
    sender = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in device = dt::endpoint(htonl(INADDR_LOOPBACK), COLLECT_COMMAND_PORT);
    return connect(sender, dt::generic(&device), sizeof device);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint32_t sent[4] = {}; // length, command, sequence, port
    const size_t received = std::min(size, sizeof sent);
    std::copy_n(data, received, reinterpret_cast<uint8_t *>(sent));
    const bool valid = sent[0] == received && sent[1] <= 3;
    assert(send(sender, data, size, 0) == static_cast<ssize_t>(size));

    Bytes address(16); // as promised
    uint32_t command = 77, port = 88;
    const int32_t sequence = CollectClient_WaitFor(receiver, 1, 2, &command, address.text(), &port);
    assert(sequence == (valid ? static_cast<int32_t>(sent[2]) : -1));
    assert(command == (valid ? sent[1] : 77));
    assert(port == (valid ? sent[3] : 88));
    assert(address.text() == std::string(valid ? "127.0.0.1" : ""));
    return 0;
}
