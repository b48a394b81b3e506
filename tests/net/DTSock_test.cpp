#include "support/network.h"
#include "support/server.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

using namespace testing;

namespace {

// The exchange "ask", and whatever comes back.
struct Exchange {
    int32_t with(int32_t socket, int32_t time_out, uint32_t length = 3) {
        return DTSock_UDP_GetMessage(socket, address, &port, buffer, length, 10, time_out);
    }
    std::string all() const {
        return std::string(address) + ":" + std::to_string(port) + " " + buffer;
    }

    char address[DTSOCK_ADDRESS_SIZE] = "127.0.0.1";
    uint32_t port = 9;
    char buffer[13] = "ask\0........";
};

} // namespace

TEST(Socket, IsBoundToAnAddressAndAPortOrNotAtAll) {
    uint16_t taken;
    bind_to_loopback(SOCK_DGRAM, &taken);
    const int before = open_descriptors();
    const auto refused = [](const char *address, int32_t port, int reason) {
        EXPECT_EQ(DTSock_UDP_Create(address, port), -1);
        EXPECT_EQ(errno, reason);
    };
    refused("127.0.0.1", taken, EADDRINUSE);
    refused("localhost", 9, EINVAL);
    refused(DTSOCK_BROADCAST, 9, EINVAL);
    network.failing = {{"socket", EMFILE}};
    refused(nullptr, 0, EMFILE);
    EXPECT_EQ(open_descriptors(), before);
    network = {};
    network.simulated = true;
    for (const int32_t port : {0, -1}) EXPECT_GE(DTSock_UDP_Create("0.0.0.0", port), 0);
    EXPECT_GE(DTSock_UDP_Create(nullptr, 8998), 0);
    EXPECT_GE(DTSock_UDP_Create("0x0a.010.257", 65536 + 7), 0);
    EXPECT_THAT(network.bound, ElementsAre(Datagram{"10.8.1.1", 7, ""}));
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
        {"<BROADCAST>", 8999, "hello", 4, 4}, {"10.1", 65536 + 5, "hello", 5, 5},
        {"<BROADCAST>", 8999, "h", 0, 0},     {"255.255.255.255", 1, "h", 1, 1},
        {nullptr, -1, nullptr, 1, 0},         {"10.0.0.256", 1, "no address", 2, 2},
        {"10.0.0.1", 1, nullptr, 0, -1},      {"10.0.0.1", 1, "\0a", 2, -1},
        {"10.0.0.1", -1, "a", 1, -1},
    };
    for (const auto &[address, port, bytes, count, answer] : rows) {
        errno = 0;
        EXPECT_EQ(DTSock_UDP_SendMessage(socket, address, port, bytes, count), answer);
        EXPECT_EQ(errno, answer < 0 ? EINVAL : 0);
    }
    EXPECT_THAT(network.sent, ElementsAre(Datagram{"255.255.255.255", 8999, "hell", true},
                                          Datagram{"10.0.0.1", 5, "hello", false},
                                          Datagram{"255.255.255.255", 8999, "", true},
                                          Datagram{"255.255.255.255", 1, "h", false},
                                          Datagram{"255.255.255.255", 1, "no", false}));
    network.simulated = false;
    EXPECT_EQ(DTSock_UDP_SendMessage(socket, "no address", 1, "h", 1), -1);
    EXPECT_TRUE(errno == EACCES || errno == ENETUNREACH) << errno; // as the system says
}

TEST(Request, WaitsAsLongAsItIsToldToForAnAnswerThatIsCutAndTerminated) {
    Exchange exchange;
    network.simulated = true;
    const auto unanswered = [&](int32_t answer, int32_t time_out, uint32_t length = 3) {
        EXPECT_EQ(exchange.with(0, time_out, length), answer);
        EXPECT_EQ(exchange.all(), "127.0.0.1:9 ask");
    };
    for (const int32_t time_out : {0, 999, -1, -2, INT32_MIN}) unanswered(0, time_out);
    unanswered(0, 8, 0); // an empty request is a request, too
    network.replies = {{"10.1.1.1", 65535, "0123456789ab"},
                       {"10.1.1.2", 1, std::string("a\0b", 3)}};
    for (const auto &[call, answer] : {std::pair("recvfrom", -1), std::pair("poll", 0)}) {
        network.failing = {{call, EINTR}};
        unanswered(answer, 7);
    }
    EXPECT_THAT(network.waits, ElementsAre(0, 999, -1, 8, 7, 7));
    EXPECT_EQ(network.sent.size(), 8u);
    network.failing.clear();
    char *const buffer = exchange.buffer;
    uint32_t port = UINT32_MAX; // negative as a port
    const auto refused = [](int32_t answer) {
        EXPECT_EQ(answer + std::exchange(errno, 0), EINVAL - 1);
    };
    refused(DTSock_UDP_GetMessage(0, exchange.address, &port, buffer, 1, 1, 0));
    refused(DTSock_UDP_GetMessage(0, exchange.address, nullptr, buffer, 1, 1, 0));
    refused(DTSock_UDP_RecvMessage(0, nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(DTSock_UDP_GetMessage(0, nullptr, &port, buffer, 1, 1, 0), 0);
    EXPECT_EQ(network.sent.size() + network.waits.size(), 14u); // nothing more
    EXPECT_EQ(exchange.with(0, 5), 10);
    EXPECT_EQ(exchange.all(), "10.1.1.1:65535 0123456789");
    EXPECT_EQ(buffer[11], '.'); // one past the terminator
    EXPECT_EQ(DTSock_UDP_RecvMessage(0, nullptr, nullptr, buffer, 5), 3);
    EXPECT_EQ(std::string(buffer, 5), std::string("a\0b\0004", 5));
}

TEST(Request, IsServedOnAnyDescriptorThatIsOpen) {
    uint16_t device, peer;
    const int socket = bind_to_loopback(SOCK_DGRAM, &device);
    const int other = bind_to_loopback(SOCK_DGRAM, &peer);
    network.peer = [&] { DTSock_UDP_SendMessage(other, "127.1", device, "reply", 5); };
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    DTSock_UDP_Close(0);
    for (const int least : {0, 1500}) {
        Exchange exchange, closed;
        const int32_t copy = fcntl(socket, F_DUPFD, least);
        if (copy < 0) GTEST_SKIP() << "descriptors end below 1500";
        EXPECT_EQ(copy, least);
        EXPECT_EQ(exchange.with(copy, -1), 5);
        EXPECT_EQ(exchange.all(), "127.0.0.1:" + std::to_string(peer) + " reply");
        network.peer = [=] { DTSock_UDP_Close(copy); };
        EXPECT_EQ(closed.with(copy, -1), 0);
        EXPECT_EQ(closed.with(copy, -1), -1); // nor can it be sent now
        network.peer = [&] { DTSock_UDP_SendMessage(other, "127.1", device, "reply", 5); };
    }
}
