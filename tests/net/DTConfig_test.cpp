#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <memory>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

void reply(const std::string &bytes, const char *address = "10.1.1.1", int port = 5000) {
    network.simulated = true;
    network.replies.push_back({address, port, bytes});
}

std::string text_for(const std::string &bytes) {
    reply(bytes);
    const auto value = std::make_unique<char[]>(1000); // exactly what is promised
    EXPECT_EQ(DTConfig_GetString("net", "name", "default", value.get()), 1);
    return value.get();
}

int32_t lookup() { return DTConfig_GetInt("net", "mtu", 77); }

int32_t number_for(const std::string &bytes) {
    reply(bytes);
    return lookup();
}

} // namespace

TEST(Configuration, AsksEverybodyOnceAndThenWhoeverAnsweredLast) {
    reply("1", "10.1.1.1", 5000);
    reply("2", "10.1.1.2", 6000);
    EXPECT_EQ(lookup(), 1);
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", -1), 2);
    EXPECT_EQ(DTConfig_GetUInt("net", "mtu", 4294967295), 4294967295); // silence changes nothing
    char value[1000];
    EXPECT_EQ(DTConfig_GetString("", "a b", "on", value), 1);
    EXPECT_STREQ(value, "on");
    EXPECT_THAT(network.bound, ElementsAre(Datagram{"0.0.0.0", 8998, ""}));
    EXPECT_THAT(network.sent,
                ElementsAre(Datagram{"255.255.255.255", 8999, "=>config net mtu 77", true},
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
    EXPECT_EQ(lookup(), 77);
    network = {};
    EXPECT_EQ(number_for("9000"), 77);
    EXPECT_EQ(text_for("name"), "default");
    EXPECT_EQ(network.bound.size() + network.sent.size(), 0u);
    EXPECT_EQ(DTConfig_SetServer(nullptr, -1), 1); // unless told to
    EXPECT_EQ(lookup(), 9000);
    EXPECT_THAT(network.sent,
                ElementsAre(Datagram{"255.255.255.255", 8999, "=>config net mtu 77", true}));
}

INSTANTIATE_TEST_SUITE_P(Configuration, NoServer,
                         testing::Values("", "socket", "bind", "sendto", "poll", "recvfrom"));

TEST(Configuration, AFixedServerIsAskedEveryTimeAndNobodyElseIsHeard) {
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 65535), 1);
    network.simulated = true;
    network.failing["socket"] = EMFILE;
    EXPECT_EQ(lookup(), 77);
    network.failing.clear();
    EXPECT_EQ(number_for("1"), 1); // from another port of that host
    reply("2", "10.1.1.9");
    EXPECT_EQ(number_for("3"), 3);
    reply("4", "10.1.1.9");
    EXPECT_EQ(lookup(), 77);
    for (const char *call : {"sendto", "poll", "recvfrom"}) {
        network.failing = {{call, EIO}};
        EXPECT_EQ(number_for("5"), 77);
        network.failing.clear();
        network.replies.clear();
    }
    for (const char *none :
         {"", "localhost", "10.1.1", "10.1.1.256", DTSOCK_BROADCAST, " 10.1.1.1"})
        EXPECT_EQ(DTConfig_SetServer(none, 7001), 0) << none;
    for (const int port : {0, -1, 65536}) EXPECT_EQ(DTConfig_SetServer("10.1.1.2", port), 0);
    EXPECT_EQ(number_for("6"), 6); // still the one from before
    EXPECT_THAT(network.sent, Each(Datagram{"10.1.1.1", 65535, "=>config net mtu 77"}));
    EXPECT_THAT(network.bound, SizeIs(1));
    ASSERT_EQ(DTConfig_SetServer(nullptr, 0), 1);
    reply("7", "10.1.1.9");
    EXPECT_EQ(lookup(), 7); // found by broadcast
    EXPECT_EQ(number_for("8"), 8);
    EXPECT_EQ(network.sent.back().address, "10.1.1.9");
}

TEST(Configuration, ReadsNumbersOfAnyBaseAndKeepsTheLow32Bits) {
    const std::pair<std::string, int32_t> rows[] = {
        {"0x10", 16},
        {" \t-012 rest", -10},
        {"abc", 0},
        {std::string("\0005", 2), 0},
        {"0xFFFFFFFF", -1},
        {"0x1234567890", 0x34567890},
        {"99999999999999999999", -1},
        {"-99999999999999999999", 0},
    };
    for (const auto &[answer, number] : rows) EXPECT_EQ(number_for(answer), number) << answer;
    reply("-5");
    EXPECT_EQ(DTConfig_GetUInt("net", "mtu", 77), 4294967291);
}

TEST(Configuration, GivesTheTextUpToTheFirstZeroByteOr999Characters) {
    EXPECT_EQ(text_for(""), "default"); // but its sender is the server
    EXPECT_EQ(text_for("on"), "on");
    EXPECT_EQ(network.sent.back().address, "10.1.1.1");
    EXPECT_EQ(text_for(std::string("a\0b", 3)), "a");
    EXPECT_EQ(text_for(std::string(998, 'x') + "yz"), std::string(998, 'x') + "y");
    EXPECT_EQ(number_for(""), 77);
}

TEST(Configuration, ARequestThatDoesNotFitIsRefusedAndForgotten) {
    network.simulated = true;
    const std::string longest(988 - 2, 'd'), too_long = longest + 'd';
    const auto value = std::make_unique<char[]>(988);
    EXPECT_EQ(DTConfig_GetString("g", "k", too_long.c_str(), value.get()), 1);
    EXPECT_EQ(value.get(), too_long);
    EXPECT_EQ(DTConfig_GetInt(nullptr, "k", 3) + DTConfig_GetInt("g", nullptr, 3), 6);
    EXPECT_EQ(DTConfig_GetString("g", "k", "d", nullptr), 1);
    EXPECT_THAT(network.sent, IsEmpty());
    reply("yes"); // the first lookup is still to come
    EXPECT_EQ(DTConfig_GetString("g", "k", longest.c_str(), value.get()), 1);
    EXPECT_STREQ(value.get(), "yes");
    EXPECT_EQ(network.sent.back().bytes, "=>config g k " + longest);
    EXPECT_TRUE(network.sent.back().broadcast);
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
