#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <dlfcn.h>
#include <errno.h>
#include <memory>
#include <sys/socket.h>

using namespace testing;

namespace {

const Datagram to_everybody = {"255.255.255.255", 8999, "=>config net mtu 77", true};
const auto value = std::make_unique<char[]>(1000); // exactly what is promised

void reply(const std::string &bytes, const char *address = "10.1.1.1", int port = 5000) {
    network.simulated = true;
    network.replies.push_back({address, port, bytes});
}

const char *text(const char *key, const char *fallback) {
    EXPECT_EQ(DTConfig_GetString("net", key, fallback, value.get()), 1);
    return value.get();
}

int thrown_away = -1; // counted where what lies in a socket has no end

int32_t lookup() { return DTConfig_GetInt("net", "mtu", 77); }

int32_t number_for(const std::string &bytes) {
    reply(bytes);
    return lookup();
}

} // namespace

extern "C" ssize_t recv(int socket, void *bytes, size_t capacity, int flags) {
    const auto real = reinterpret_cast<decltype(recv) *>(dlsym(RTLD_NEXT, "recv"));
    return thrown_away < 0 ? real(socket, bytes, capacity, flags) : ++thrown_away;
}

// A signal neither ends a lookup nor sends its request again.
TEST(Configuration, AsksEverybodyOnceAndThenWhoeverAnsweredLastWhateverTheSignals) {
    network.peer = [] {
        network.failing.clear();
        if (network.waits.size() % 3) network.failing["poll"] = EINTR;
    };
    reply("1", "10.1.1.1", 5000);
    reply("2", "10.1.1.2", 6000);
    EXPECT_EQ(lookup(), 1);
    EXPECT_EQ(DTConfig_GetInt("net", "mtu", -1), 2);
    EXPECT_EQ(DTConfig_GetUInt("net", "mtu", 4294967295), 4294967295); // silence changes nothing
    EXPECT_STREQ(text("a b", "on"), "on");
    EXPECT_THAT(network.bound, ElementsAre(Datagram{"0.0.0.0", 8998, ""}));
    EXPECT_THAT(network.sent,
                ElementsAre(to_everybody, Datagram{"10.1.1.1", 5000, "=>config net mtu -1"},
                            Datagram{"10.1.1.2", 6000, "=>config net mtu -1"},
                            Datagram{"10.1.1.2", 6000, "=>config net a b on"}));
    EXPECT_THAT(network.waits, AllOf(SizeIs(12), Contains(Gt(100)), Each(Le(1001)), Each(Gt(0))));
}

TEST(Configuration, WithoutAFirstAnswerNobodyIsAskedAgainUnlessToldTo) {
    for (const char *missing : {"socket", "bind", "sendto", "poll", "recvfrom", "an answer"}) {
        network = {};
        network.simulated = true;
        network.failing[missing] = EIO;
        if (*missing != 'a') reply("1");
        EXPECT_EQ(lookup(), 77) << missing;
        network = {};
        EXPECT_EQ(number_for("9000"), 77) << missing;
        EXPECT_STREQ(text("name", "default"), "default");
        EXPECT_EQ(network.bound.size() + network.sent.size(), 0u) << missing;
        EXPECT_EQ(DTConfig_SetServer(nullptr, -1), 1);
    }
    EXPECT_EQ(lookup(), 9000);
    EXPECT_THAT(network.sent, ElementsAre(to_everybody));
}

TEST(Configuration, AFixedServerIsAskedEveryTimeAndNobodyElseIsHeard) {
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 65535), 1);
    network.simulated = true;
    for (const char *call : {"socket", "sendto", "poll", "recvfrom"}) {
        network.failing = {{call, EIO}};
        EXPECT_EQ(number_for("5"), 77);
        network.replies.clear();
    }
    network.failing.clear();
    EXPECT_EQ(number_for("1"), 1); // from another port of that host
    reply("2", "10.1.1.9");
    EXPECT_EQ(number_for("3"), 3);
    network.peer = [] { reply("4", "10.1.1.9"); }; // without end
    EXPECT_EQ(lookup(), 77);
    network.peer = [] {};
    for (const char *none : {"", "localhost", "10.1.1", "10.1.1.256", "<BROADCAST>", " 10.1.1.1"})
        EXPECT_EQ(DTConfig_SetServer(none, 7001), 0) << none;
    for (const int port : {0, -1, 65536}) EXPECT_EQ(DTConfig_SetServer("10.1.1.2", port), 0);
    EXPECT_EQ(number_for("6"), 6); // still the one from before
    EXPECT_THAT(network.sent, Each(Datagram{"10.1.1.1", 65535, "=>config net mtu 77"}));
    EXPECT_THAT(network.bound, SizeIs(1));
    ASSERT_EQ(DTConfig_SetServer(nullptr, 0), 1);
    network.replies.clear();
    reply("7", "10.1.1.9");
    EXPECT_EQ(lookup(), 7); // found by broadcast
    network.failing["recvfrom"] = EIO;
    EXPECT_EQ(number_for("9"), 77); // and not lost again
    network.failing.clear();
    network.replies.clear();
    EXPECT_EQ(number_for("8"), 8);
    EXPECT_EQ(network.sent.back().address, "10.1.1.9");
}

TEST(Configuration, ReadsNumbersOfAnyBaseAndTextsUpToTheFirstZeroByteOr999Characters) {
    const std::pair<std::string, int32_t> numbers[] = {
        {"", 77},
        {"0x10", 16},
        {" -012 rest", -10},
        {"abc", 0},
        {"0xFFFFFFFF", -1},
        {"0x1234567890", 0x34567890},
        {"99999999999999999999", -1},
    };
    for (const auto &[answer, number] : numbers) EXPECT_EQ(number_for(answer), number) << answer;
    EXPECT_EQ(network.sent[1].address, "10.1.1.1"); // who answers nothing is the server, too
    reply("-5");
    EXPECT_EQ(DTConfig_GetUInt("net", "mtu", 77), 4294967291);
    reply(std::string("a\0b", 3));
    EXPECT_STREQ(text("name", "default"), "a");
    reply(std::string(998, 'x') + "yz");
    EXPECT_EQ(text("name", "default"), std::string(998, 'x') + "y");
}

TEST(Configuration, ARequestThatDoesNotFitIsRefusedAndForgotten) {
    network.simulated = true;
    const std::string longest(988 - 4, 'd'), too_long = longest + 'd';
    EXPECT_EQ(text("k", too_long.c_str()), too_long);
    EXPECT_EQ(DTConfig_GetInt(nullptr, "k", 3) + DTConfig_GetInt("g", nullptr, 3), 6);
    EXPECT_EQ(DTConfig_GetString("g", "k", "d", nullptr), 1);
    EXPECT_THAT(network.sent, IsEmpty());
    reply("yes"); // the first lookup is still to come
    EXPECT_STREQ(text("k", longest.c_str()), "yes");
    EXPECT_STREQ(text("k", value.get() + 1), "es"); // a default may lie in the value
    EXPECT_STREQ(text("k", value.get()), "es");
    EXPECT_STREQ(text("k", nullptr), "");
    EXPECT_TRUE(network.sent[0].broadcast);
    EXPECT_EQ(network.sent[0].bytes, "=>config net k " + longest);
    EXPECT_EQ(network.sent[3].bytes, "=>config net k ");
}

// On real sockets. What a second server answers is too late, and what nobody asked for too early.
TEST(Configuration, OnlyWhatComesWithinTheWaitIsAnAnswer) {
    const int32_t near = DTSock_UDP_Create("10.1.1.1", 5000);
    if (near < 0) GTEST_SKIP() << "needs a network of the test's own";
    const int32_t far = DTSock_UDP_Create("127.0.0.1", 6000);
    const auto say = [](int32_t from, const char *text) {
        DTSock_UDP_SendMessage(from, "10.1.1.1", 8998, text, 1);
    };
    network.peer = [=] {
        say(near, "1");
        say(far, "2");
    };
    EXPECT_EQ(lookup(), 1);
    network.peer = [] {};
    EXPECT_EQ(lookup(), 77);
    network.peer = [=] { say(near, "4"); };
    for (const int32_t unasked : {far, near}) {
        for (int i = 0; i < 200; ++i) say(unasked, "3");
        EXPECT_EQ(lookup(), 4);
        EXPECT_EQ(network.sent.back().address, "10.1.1.1"); // it is still the server
        DTConfig_SetServer("10.1.1.1", 5000);               // in the end for good
    }
    thrown_away = 0;
    EXPECT_EQ(lookup(), 4);
    EXPECT_EQ(thrown_away, 1024);
}
