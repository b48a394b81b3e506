#include "support/network.h"
#include "support/server.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;

namespace {

// Somebody on the loopback, at a port of the system's choice.
struct Peer {
    uint16_t port;
    int socket = bind_to_loopback(SOCK_DGRAM, &port);

    ~Peer() { DTSock_UDP_Close(socket); }

    void send(const Peer &to, const std::string &bytes) {
        DTSock_UDP_SendMessage(socket, "127.0.0.1", to.port, bytes.data(),
                               static_cast<uint32_t>(bytes.size()));
    }

    // The exchange "ask", with whatever comes back in the three members below.
    int32_t asked_by(int32_t client, int32_t time_out) {
        snprintf(address, sizeof address, "127.0.0.1");
        other = port;
        snprintf(buffer, sizeof buffer, "ask");
        return DTSock_UDP_GetMessage(client, address, &other, buffer, 3, 10, time_out);
    }

    char address[DTSOCK_ADDRESS_SIZE] = "";
    uint32_t other = 0;
    char buffer[11] = "";
};

} // namespace

TEST(Socket, IsBoundToAnAddressAndAPortOrNotAtAll) {
    Peer peer;
    const int next = DTSock_UDP_Create(nullptr, 0);
    DTSock_UDP_Close(next);
    EXPECT_EQ(DTSock_UDP_Create("127.0.0.1", peer.port), -1);
    EXPECT_EQ(DTSock_UDP_Create("localhost", 9), -1);
    EXPECT_EQ(DTSock_UDP_Create(DTSOCK_BROADCAST, 9), -1);
    network.failing = {{"socket", EMFILE}};
    EXPECT_EQ(DTSock_UDP_Create(nullptr, 0), -1);
    network = {};
    network.simulated = true;
    EXPECT_EQ(DTSock_UDP_Create(nullptr, 8998), next); // all others were closed again
    EXPECT_GE(DTSock_UDP_Create("0.0.0.0", 0), 0);
    EXPECT_GE(DTSock_UDP_Create("0.0.0.0", -1), 0);
    EXPECT_GE(DTSock_UDP_Create("10.1.1.1", 65536 + 7), 0);
    EXPECT_THAT(network.bound, ElementsAre(Datagram{"10.1.1.1", 7, ""}));
}

// It may broadcast only while it sends to everybody.
TEST(Socket, SendsToOneOrToEverybodyButNothingForBadArguments) {
    network.simulated = true;
    const int32_t socket = DTSock_UDP_Create(nullptr, 0);
    const struct {
        const char *address;
        int32_t port;
        const char *bytes;
        uint32_t count;
        int32_t answer;
    } rows[] = {
        {"<BROADCAST>", 8999, "hello", 4, 4}, {"10.0.0.1", 65536 + 5, "hello", 5, 5},
        {"<BROADCAST>", 8999, "h", 0, 0},     {"255.255.255.255", 1, "h", 1, 1},
        {nullptr, -1, nullptr, 1, 0},         {"10.0.0.1", 1, nullptr, 0, -1},
        {"10.0.0.1", 1, "\0a", 2, -1},        {"10.0.0.1", -1, "a", 1, -1},
        {"10.0.0.256", 1, "a", 1, -1},
    };
    for (const auto &[address, port, bytes, count, answer] : rows)
        EXPECT_EQ(DTSock_UDP_SendMessage(socket, address, port, bytes, count), answer);
    EXPECT_THAT(network.sent, ElementsAre(Datagram{"255.255.255.255", 8999, "hell", true},
                                          Datagram{"10.0.0.1", 5, "hello", false},
                                          Datagram{"255.255.255.255", 8999, "", true},
                                          Datagram{"255.255.255.255", 1, "h", false}));
    network.failing["sendto"] = EPERM;
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "10.0.0.1", 1, "h", 1), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST(Socket, ReceivesWhatFitsAndTerminatesIt) {
    Peer to, from;
    from.send(to, "0123456789");
    from.send(to, std::string("a\0b", 3));
    char address[DTSOCK_ADDRESS_SIZE] = "here", buffer[] = "........";
    uint32_t port = 7;
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, nullptr, 0), -1);
    network.failing["recvfrom"] = EINTR;
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, buffer, 5), -1);
    EXPECT_EQ(std::string(address) + buffer, "here........");
    EXPECT_EQ(port, 7u);
    network.failing.clear();
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, address, &port, buffer, 5), 5);
    EXPECT_EQ(std::string(buffer, 8), std::string("01234\0..", 8)); // one past the capacity
    EXPECT_STREQ(address, "127.0.0.1");
    EXPECT_EQ(port, from.port);
    EXPECT_EQ(DTSock_UDP_RecvMessage(to.socket, nullptr, nullptr, buffer, 5), 3);
    EXPECT_EQ(std::string(buffer, 4), std::string("a\0b\0", 4));
}

TEST(Request, IsAnsweredByWhoeverComesFirst) {
    Peer client, asked, other;
    network.peer = [&] { other.send(client, "reply"); };
    EXPECT_EQ(asked.asked_by(client.socket, 5000), 5);
    EXPECT_STREQ(asked.buffer, "reply");
    EXPECT_STREQ(asked.address, "127.0.0.1");
    EXPECT_EQ(asked.other, other.port);
    EXPECT_EQ(DTSock_UDP_RecvMessage(asked.socket, nullptr, nullptr, asked.buffer, 10), 3);
    EXPECT_STREQ(asked.buffer, "ask");
}

TEST(Request, WithoutAnAnswerLeavesEverythingAsItWas) {
    Peer client, asked;
    EXPECT_EQ(asked.asked_by(client.socket, 20), 0);
    network.peer = [&] { asked.send(client, "unheard"); };
    for (const auto &[call, answer] : {std::pair("recvfrom", -1), std::pair("poll", 0)}) {
        network.failing = {{call, EINTR}};
        EXPECT_EQ(asked.asked_by(client.socket, 5000), answer);
    }
    network = {};
    network.peer = [&] { DTSock_UDP_Close(std::exchange(client.socket, -1)); };
    EXPECT_EQ(asked.asked_by(client.socket, -1), 0);
    EXPECT_EQ(asked.asked_by(client.socket, -1), -1); // nor can it be sent now
    EXPECT_STREQ(asked.buffer, "ask");
    EXPECT_STREQ(asked.address, "127.0.0.1");
    EXPECT_EQ(asked.other, asked.port);
}

TEST(Request, WaitsAsLongAsItIsToldTo) {
    network.simulated = true;
    Peer client, asked;
    for (const int time_out : {0, 999, -1, -2, INT32_MIN})
        EXPECT_EQ(asked.asked_by(client.socket, time_out), 0);
    // An empty request is a request, too.
    DTSock_UDP_GetMessage(client.socket, asked.address, &asked.other, asked.buffer, 0, 10, 8);
    EXPECT_THAT(network.waits, ElementsAre(0, 999, -1, 8));
    EXPECT_EQ(network.sent.size(), 6u);
    uint32_t port = UINT32_MAX; // negative as a port
    EXPECT_EQ(DTSock_UDP_GetMessage(client.socket, asked.address, &port, asked.buffer, 1, 1, 0),
              -1);
    EXPECT_EQ(DTSock_UDP_GetMessage(client.socket, asked.address, nullptr, asked.buffer, 1, 1, 0),
              -1);
    EXPECT_EQ(DTSock_UDP_GetMessage(client.socket, nullptr, &port, asked.buffer, 1, 1, 0), 0);
    EXPECT_EQ(network.sent.size() + network.waits.size(), 10u); // nothing more
}

TEST(Request, IsServedOnAnyDescriptor) {
    Peer client, asked;
    network.peer = [&] { asked.send(client, "yes"); };
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    close(STDIN_FILENO);
    for (const int least : {0, 1500}) {
        const int32_t copy = fcntl(client.socket, F_DUPFD, least);
        if (copy < 0) GTEST_SKIP() << "descriptors end below 1500";
        EXPECT_EQ(copy, least);
        EXPECT_EQ(asked.asked_by(copy, 5000), 3);
        DTSock_UDP_Close(copy);
        EXPECT_EQ(fcntl(copy, F_GETFD), -1);
    }
}
