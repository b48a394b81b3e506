// Command datagrams, as they arrive.
#include "input.h"

#include "support/network.h"

#include <dt/collect.h>

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    network.simulated = true;
    return freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint32_t sent[4] = {}; // length, command, sequence, port
    const size_t received = std::min(size, sizeof sent);
    std::copy_n(data, received, reinterpret_cast<uint8_t *>(sent));
    const bool valid = sent[0] == received && sent[1] <= 3;
    network.replies = {{"127.0.0.1", 1, {data, data + size}}};

    Bytes address(16); // as promised
    uint32_t command = 77, port = 88;
    const int32_t sequence = CollectClient_WaitFor(0, 1, 2, &command, address.text(), &port);
    assert(sequence == (valid ? static_cast<int32_t>(sent[2]) : -1));
    assert(command == (valid ? sent[1] : 77));
    assert(port == (valid ? sent[3] : 88));
    assert(address.text() == std::string(valid ? "127.0.0.1" : ""));
    return 0;
}
