#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;

namespace {

int next_descriptor() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return next;
}

// Somebody on the loopback, at a port of the system's choice.
struct Peer {
    int socket = DTSock_UDP_Create(nullptr, 0);
    int port = bind_anywhere();

    ~Peer() { DTSock_UDP_Close(socket); }

    int bind_anywhere() {
        sockaddr_in any = {};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof any;
        bind(socket, reinterpret_cast<sockaddr *>(&any), length);
        getsockname(socket, reinterpret_cast<sockaddr *>(&any), &length);
        return ntohs(any.sin_port);
    }

    Datagram receive() {
        char sender[DTSOCK_ADDRESS_SIZE], bytes[101];
        uint32_t from = 0;
        DTSock_UDP_RecvMessage(socket, sender, &from, bytes, 100);
        return {sender, static_cast<int>(from), bytes};
    }

    // The exchange "ask", with whatever comes back in the three members below.
    int32_t asked_by(int32_t client, int32_t time_out) {
        snprintf(address, sizeof address, "127.0.0.1");
        other = static_cast<uint32_t>(port);
        snprintf(buffer, sizeof buffer, "ask");
        return DTSock_UDP_GetMessage(client, address, &other, buffer, 3, 10, time_out);
    }

    char address[DTSOCK_ADDRESS_SIZE] = "";
    uint32_t other = 0;
    char buffer[11] = "";
};

void answer_from(Peer &from, Peer &asked, const char *text) {
    network.peer = [&from, &asked, text] {
        const Datagram request = asked.receive();
        EXPECT_EQ(request.bytes, "ask");
        DTSock_UDP_SendMessage(from.socket, "127.0.0.1", request.port, text,
                               static_cast<uint32_t>(strlen(text)));
    };
}

} // namespace

TEST(Socket, IsBoundToAnAddressAndAPortOrNotAtAll) {
    network.simulated = true;
    EXPECT_GE(DTSock_UDP_Create(nullptr, 8998), 0);
    EXPECT_GE(DTSock_UDP_Create("0.0.0.0", 0), 0);
    EXPECT_GE(DTSock_UDP_Create("0.0.0.0", -1), 0);
    EXPECT_THAT(network.bound, ElementsAre());
    EXPECT_GE(DTSock_UDP_Create("0.0.0.0", 8998), 0);
    EXPECT_GE(DTSock_UDP_Create("10.1.1.1", 65536 + 7), 0);
    EXPECT_THAT(network.bound,
                ElementsAre(Datagram{"0.0.0.0", 8998, ""}, Datagram{"10.1.1.1", 7, ""}));
}

TEST(Socket, ThatCannotBeBoundIsClosedAgain) {
    Peer peer;
    const int next = next_descriptor();
    EXPECT_EQ(DTSock_UDP_Create("127.0.0.1", peer.port), -1);
    EXPECT_EQ(DTSock_UDP_Create("localhost", 9), -1);
    EXPECT_EQ(DTSock_UDP_Create(DTSOCK_BROADCAST, 9), -1);
    EXPECT_EQ(next_descriptor(), next);
    network.failing["socket"] = EMFILE;
    EXPECT_EQ(DTSock_UDP_Create(nullptr, 0), -1);
}

TEST(Socket, MayBroadcastOnlyWhileItSendsToEverybody) {
    network.simulated = true;
    const int32_t socket = DTSock_UDP_Create(nullptr, 0);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "<BROADCAST>", 8999, "hello", 4), 4);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", 65536 + 5, "hello", 5), 5);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "<BROADCAST>", 8999, "h", 0), 0);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "255.255.255.255", 1, "h", 1), 1);
    EXPECT_THAT(network.sent, ElementsAre(Datagram{"255.255.255.255", 8999, "hell", true},
                                          Datagram{"10.0.0.1", 5, "hello", false},
                                          Datagram{"255.255.255.255", 8999, "", true},
                                          Datagram{"255.255.255.255", 1, "h", false}));
    network.failing["sendto"] = EPERM;
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", 1, "h", 1), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST(Socket, SendsNothingForBadArguments) {
    network.simulated = true;
    const int32_t socket = DTSock_UDP_Create(nullptr, 0);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, nullptr, -1, nullptr, 1), 0);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", 1, nullptr, 0), -1);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", 1, "\0a", 2), -1);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", -1, "a", 1), -1);
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.256", 1, "a", 1), -1);
    char address[DTSOCK_ADDRESS_SIZE] = "10.0.0.1", text[] = "a";
    uint32_t port = UINT32_MAX; // negative as a port
    EXPECT_EQ(DTSock_UDP_GetMessage(socket, address, &port, text, 1, 1, -1), -1);
    EXPECT_EQ(DTSock_UDP_GetMessage(socket, address, nullptr, text, 1, 1, -1), -1);
    EXPECT_EQ(DTSock_UDP_GetMessage(socket, nullptr, &port, text, 1, 1, -1), 0);
    EXPECT_THAT(network.sent, ElementsAre());
    EXPECT_THAT(network.waits, ElementsAre());
}

TEST(Socket, ReceivesWhatFitsAndTerminatesIt) {
    Peer to, from;
    DTSock_UDP_SendMessage(from.socket, "127.0.0.1", to.port, "0123456789", 10);
    DTSock_UDP_SendMessage(from.socket, "127.0.0.1", to.port, "a\0b", 3);
    char address[DTSOCK_ADDRESS_SIZE] = "here", buffer[] = "........";
    uint32_t port = 7;
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, nullptr, 0), -1);
    network.failing["recvfrom"] = EINTR;
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, buffer, 5), -1);
    EXPECT_STREQ(address, "here");
    EXPECT_STREQ(buffer, "........");
    EXPECT_EQ(port, 7u);
    network.failing.clear();
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, buffer, 5), 5);
    EXPECT_EQ(std::string(buffer, 8), std::string("01234\0..", 8)); // one past the capacity
    EXPECT_STREQ(address, "127.0.0.1");
    EXPECT_EQ(port, static_cast<uint32_t>(from.port));
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, nullptr, nullptr, buffer, 5), 3);
    EXPECT_EQ(std::string(buffer, 4), std::string("a\0b\0", 4));
}

TEST(Request, IsAnsweredByWhoeverComesFirst) {
    Peer client, asked, other;
    answer_from(other, asked, "reply");
    EXPECT_EQ(asked.asked_by(client.socket, 5000), 5);
    EXPECT_STREQ(asked.buffer, "reply");
    EXPECT_STREQ(asked.address, "127.0.0.1");
    EXPECT_EQ(asked.other, static_cast<uint32_t>(other.port));
    network.failing["recvfrom"] = EIO;
    network.peer = [] {};
    DTSock_UDP_SendMessage(other.socket, "127.0.0.1", client.port, "late", 4);
    EXPECT_EQ(asked.asked_by(client.socket, 5000), -1);
}

TEST(Request, WaitsAsLongAsItIsToldTo) {
    network.simulated = true;
    Peer client, asked;
    for (const int time_out : {0, 999, 1000, 2500, -1}) {
        EXPECT_EQ(asked.asked_by(client.socket, time_out), 0);
        EXPECT_EQ(network.waits.back(), time_out);
    }
    EXPECT_EQ(asked.asked_by(client.socket, -2), 0);
    EXPECT_EQ(asked.asked_by(client.socket, INT32_MIN), 0);
    EXPECT_EQ(network.waits.size(), 5u);
    EXPECT_EQ(network.sent.size(), 7u);
    // An empty request is a request, too.
    DTSock_UDP_GetMessage(client.socket, asked.address, &asked.other, asked.buffer, 0, 10, 8);
    EXPECT_EQ(network.waits.back(), 8);
}

TEST(Request, WithoutAnAnswerLeavesEverythingAsItWas) {
    Peer client, asked;
    EXPECT_EQ(asked.asked_by(client.socket, 20), 0);
    answer_from(asked, asked, "unheard");
    network.failing["poll"] = EINTR;
    EXPECT_EQ(asked.asked_by(client.socket, 5000), 0);
    network.failing.clear();
    network.peer = [&client] { DTSock_UDP_Close(client.socket); };
    EXPECT_EQ(asked.asked_by(client.socket, -1), 0);
    EXPECT_EQ(asked.asked_by(client.socket, -1), -1); // nor can it be sent now
    EXPECT_STREQ(asked.buffer, "ask");
    EXPECT_STREQ(asked.address, "127.0.0.1");
    EXPECT_EQ(asked.other, static_cast<uint32_t>(asked.port));
    client.socket = -1;
}

TEST(Request, IsServedOnAnyDescriptor) {
    Peer asked;
    answer_from(asked, asked, "yes");
    close(STDIN_FILENO);
    const int32_t lowest = DTSock_UDP_Create(nullptr, 0);
    ASSERT_EQ(lowest, 0);
    EXPECT_EQ(asked.asked_by(lowest, 5000), 3);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int32_t high = fcntl(lowest, F_DUPFD, 1500);
    DTSock_UDP_Close(lowest);
    EXPECT_EQ(fcntl(lowest, F_GETFD), -1);
    if (high < 0) GTEST_SKIP() << "descriptors end below 1500";
    EXPECT_EQ(asked.asked_by(high, 5000), 3);
}
