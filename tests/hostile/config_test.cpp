// Configuration servers that contradict each other and datagrams that nobody asked for: real
// sockets in a network of the test's own.
#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <sys/socket.h>

namespace {

bool flooded; // what lies in a socket has no end

int32_t lookup() { return DTConfig_GetInt("net", "mtu", 77); }

// To the device's settings.
void send_from(int32_t socket, const char *text) {
    DTSock_UDP_SendMessage(socket, "10.1.1.1", 8998, text, 1);
}

} // namespace

extern "C" ssize_t recv(int socket, void *bytes, size_t capacity, int flags) {
    if (flooded) return 1;
    return recvfrom(socket, bytes, capacity, flags, nullptr, nullptr);
}

TEST(HostileConfiguration, OnlyWhatComesWithinTheWaitIsAnAnswer) {
    const int32_t near = DTSock_UDP_Create("10.1.1.1", 5000);
    if (near < 0) GTEST_SKIP() << "needs a network of the test's own";
    const int32_t far = DTSock_UDP_Create("127.0.0.1", 6000);
    const int32_t ear = DTSock_UDP_Create("0.0.0.0", 8999);
    network.peer = [=] {
        send_from(near, "1");
        send_from(far, "2"); // too late
    };
    EXPECT_EQ(lookup(), 1);
    char request[100];
    EXPECT_GT(DTSock_UDP_RecvMessage(ear, nullptr, nullptr, request, sizeof request - 1), 0);
    EXPECT_STREQ(request, "=>config net mtu 77"); // broadcast
    network.peer = [] {};
    EXPECT_EQ(lookup(), 77);
    network.peer = [=] { send_from(near, "4"); };
    for (const int32_t unasked : {far, near}) {
        for (int i = 0; i < 200; ++i) send_from(unasked, "3");
        EXPECT_EQ(lookup(), 4);
        EXPECT_EQ(network.sent.back().address, "10.1.1.1"); // it is still the server
        DTConfig_SetServer("10.1.1.1", 5000);               // in the end for good
    }
    EXPECT_EQ(DTSock_UDP_SendMessage(ear, "no address", 8998, "5", 1), -1);
    EXPECT_EQ(errno, EACCES);
    flooded = true; // more than can be thrown away
    EXPECT_EQ(lookup(), 4);
}
