#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const Datagram server{"10.1.1.1", 5000, ""};

void reply(const std::string &bytes, const Datagram &from = server) {
    network.simulated = true;
    network.replies.push_back({from.address, from.port, bytes});
}

std::string text_for(const std::string &bytes) {
    reply(bytes);
    const auto value = std::make_unique<char[]>(1000); // exactly what is promised
    EXPECT_EQ(DTConfig_GetString("net", "name", "default", value.get()), 1);
    return value.get();
}

int32_t number_for(const std::string &bytes) {
    reply(bytes);
    return DTConfig_GetInt("net", "mtu", 77);
}

uint32_t unsigned_for(const std::string &bytes) {
    reply(bytes);
    return DTConfig_GetUInt("net", "mtu", 77);
}

} // namespace

TEST(Configuration, AsksEverybodyOnceAndThenWhoeverAnsweredLast) {
    reply("1", {"10.1.1.1", 5000, ""});
    reply("2", {"10.1.1.2", 6000, ""});
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 7), 1);
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", -1), 2);
    EXPECT_EQ(DTConfig_GetUInt("net", "mtu", 4294967295), 4294967295); // silence changes nothing
    char value[1000];
    EXPECT_EQ(DTConfig_GetString("", "a b", "on", value), 1);
    EXPECT_STREQ(value, "on");
    EXPECT_THAT(network.bound, ElementsAre(Datagram{"0.0.0.0", 8998, ""}));
    EXPECT_THAT(network.sent,
                ElementsAre(Datagram{"255.255.255.255", 8999, "=>config net mtu 7", true},
                            Datagram{"10.1.1.1", 5000, "=>config net mtu -1"},
                            Datagram{"10.1.1.2", 6000, "=>config net mtu -1"},
                            Datagram{"10.1.1.2", 6000, "=>config  a b on"}));
    EXPECT_THAT(network.waits, ElementsAre(1000, 1000, 1000, 1000));
}

// What goes wrong with the first lookup; "" for an answer that does not come.
class NoServer : public testing::TestWithParam<const char *> {};

TEST_P(NoServer, MeansThatNobodyIsAskedAgain) {
    network.simulated = true;
    network.failing[GetParam()] = EIO;
    if (*GetParam()) reply("1");
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 1500), 1500);
    const size_t bound = network.bound.size(), sent = network.sent.size();
    network.failing.clear();
    reply("9000");
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 1500), 1500);
    char value[1000];
    EXPECT_EQ(DTConfig_GetString("net", "name", "default", value), 1);
    EXPECT_STREQ(value, "default");
    EXPECT_EQ(network.bound.size(), bound);
    EXPECT_EQ(network.sent.size(), sent);
    network.replies.erase(network.replies.begin(), network.replies.end() - 1);
    EXPECT_EQ(DTConfig_SetServer(nullptr, -1), 1); // unless told to
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 1500), 9000);
    EXPECT_EQ(network.sent.back(),
              (Datagram{"255.255.255.255", 8999, "=>config net mtu 1500", true}));
}

INSTANTIATE_TEST_SUITE_P(Configuration, NoServer,
                         testing::Values("", "socket", "bind", "sendto", "poll", "recvfrom"));

TEST(Configuration, AFixedServerIsAskedEveryTimeAndNobodyElseIsHeard) {
    network.simulated = true;
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 7000), 1);
    EXPECT_EQ(number_for("1"), 1); // from another port of that host
    reply("2", {"10.1.1.9", 7000, ""});
    EXPECT_EQ(number_for("3"), 3);
    reply("4", {"10.1.1.9", 7000, ""});
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 77), 77);
    for (const char *call : {"sendto", "poll", "recvfrom"}) {
        network.failing[call] = EIO;
        EXPECT_EQ(number_for("5"), 77);
        network.failing.clear();
        network.replies.clear();
    }
    for (const char *none :
         {"", "localhost", "10.1.1", "10.1.1.256", DTSOCK_BROADCAST, " 10.1.1.1"})
        EXPECT_EQ(DTConfig_SetServer(none, 7001), 0) << none;
    for (const int port : {0, -1, 65536}) EXPECT_EQ(DTConfig_SetServer("10.1.1.2", port), 0);
    EXPECT_EQ(number_for("6"), 6); // still the one from before
    EXPECT_THAT(network.sent, testing::Each(Datagram{"10.1.1.1", 7000, "=>config net mtu 77"}));
    EXPECT_THAT(network.bound, testing::SizeIs(1));
    ASSERT_EQ(DTConfig_SetServer(nullptr, 0), 1);
    reply("7", {"10.1.1.9", 7000, ""});
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 77), 7); // found by broadcast
    EXPECT_EQ(number_for("8"), 8);
    EXPECT_EQ(network.sent.back().address, "10.1.1.9");
}

TEST(Configuration, AFixedServerIsAskedAsSoonAsThereIsASocket) {
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 65535), 1);
    network.failing["socket"] = EMFILE;
    EXPECT_EQ(number_for("1"), 77);
    network.failing.clear();
    EXPECT_EQ(number_for("2"), 1);
    EXPECT_THAT(network.sent, ElementsAre(Datagram{"10.1.1.1", 65535, "=>config net mtu 77"}));
}

TEST(Configuration, AnEmptyReplyIsNoAnswerButItsSenderIsTheServer) {
    EXPECT_EQ(number_for(""), 77);
    EXPECT_EQ(number_for("5"), 5);
    EXPECT_EQ(network.sent.back().address, server.address);
    EXPECT_EQ(text_for(""), "default");
}

TEST(Configuration, ReadsNumbersOfAnyBaseAndKeepsTheLow32Bits) {
    EXPECT_EQ(number_for("0x10"), 16);
    EXPECT_EQ(number_for("0XfF"), 255);
    EXPECT_EQ(number_for(" \t-012 rest"), -10);
    EXPECT_EQ(number_for("abc"), 0);
    EXPECT_EQ(number_for(std::string("\0"
                                     "5",
                                     2)),
              0);
    EXPECT_EQ(number_for("-5"), -5);
    EXPECT_EQ(unsigned_for("-5"), 4294967291);
    EXPECT_EQ(unsigned_for("4294967295"), 4294967295);
    EXPECT_EQ(number_for("0xFFFFFFFF"), -1);
    EXPECT_EQ(number_for("0x1234567890"), 0x34567890);
    EXPECT_EQ(number_for("99999999999999999999"), -1);
    EXPECT_EQ(number_for("-99999999999999999999"), 0);
}

TEST(Configuration, GivesTheTextUpToTheFirstZeroByteOr999Characters) {
    EXPECT_EQ(text_for("on"), "on");
    EXPECT_EQ(text_for(std::string("a\0b", 3)), "a");
    for (const size_t size : {999u, 1000u, 65507u})
        EXPECT_EQ(text_for(std::string(998, 'x') + std::string(size - 998, 'y')),
                  std::string(998, 'x') + "y");
    EXPECT_EQ(text_for("off"), "off");
}

TEST(Configuration, ARequestThatDoesNotFitIsRefusedAndForgotten) {
    network.simulated = true;
    const std::string longest(988 - 2, 'd'), too_long = longest + 'd';
    const auto value = std::make_unique<char[]>(988);
    EXPECT_EQ(DTConfig_GetString("g", "k", too_long.c_str(), value.get()), 1);
    EXPECT_EQ(value.get(), too_long);
    EXPECT_EQ(DTConfig_GetInt(nullptr, "k", 3), 3);
    EXPECT_EQ(DTConfig_GetInt("g", nullptr, 3), 3);
    EXPECT_EQ(DTConfig_GetString("g", "k", "d", nullptr), 1);
    EXPECT_THAT(network.sent, IsEmpty());
    reply("yes"); // the first lookup is still to come
    EXPECT_EQ(DTConfig_GetString("g", "k", longest.c_str(), value.get()), 1);
    EXPECT_STREQ(value.get(), "yes");
    EXPECT_THAT(network.sent,
                ElementsAre(Datagram{"255.255.255.255", 8999, "=>config g k " + longest, true}));
}

TEST(Configuration, TheDefaultMayLieInTheValueOrBeMissing) {
    reply("blue");
    char value[1000] = "red";
    DTConfig_GetString("light", "colour", value, value);
    EXPECT_STREQ(value, "blue");
    DTConfig_GetString("light", "colour", value + 1, value);
    EXPECT_STREQ(value, "lue");
    DTConfig_GetString("light", "colour", nullptr, value);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(network.sent.back().bytes, "=>config light colour ");
}

// A server that hears broadcasts at port 8999 and answers from a port of its own.
TEST(PrivateNetwork, FindsItsConfigurationServerByBroadcast) {
    const std::string reason = enter_private_network("10.1.1.1");
    if (!reason.empty()) GTEST_SKIP() << reason;
    const int32_t ear = DTSock_UDP_Create("0.0.0.0", 8999);
    const int32_t mouth = DTSock_UDP_Create("10.1.1.1", 5000);
    std::vector<std::string> requests;
    const std::vector<std::string> answers = {"9000", std::string(65507, 'x'), "0x7B"};
    network.peer = [&] {
        char address[DTSOCK_ADDRESS_SIZE], bytes[1001];
        uint32_t port;
        const std::string &answer = answers[requests.size()];
        DTSock_UDP_RecvMessage(requests.empty() ? ear : mouth, address, &port, bytes, 1000);
        requests.push_back(bytes);
        DTSock_UDP_SendMessage(mouth, address, static_cast<int32_t>(port), answer.data(),
                               static_cast<uint32_t>(answer.size()));
    };
    char value[1000];
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", 1500), 9000);
    EXPECT_EQ(DTConfig_GetString("device", "name", "pump", value), 1);
    EXPECT_EQ(value, std::string(999, 'x'));
    EXPECT_EQ(DTConfig_GetUInt("net", "ttl", 64), 123u);
    EXPECT_THAT(requests, ElementsAre("=>config net mtu 1500", "=>config device name pump",
                                      "=>config net ttl 64"));
    EXPECT_EQ(DTSock_UDP_SendMessage(mouth, "255.255.255.255", 8999, "literal", 7), -1);
    EXPECT_EQ(errno, EACCES);
}
