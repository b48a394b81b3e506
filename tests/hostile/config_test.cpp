// Configuration servers that contradict each other, answer with anything or are drowned by others:
// real sockets in a network of the test's own.
#include "support/network.h"

#include <dt/net.h>
#include <gmock/gmock.h>

#include <chrono>

namespace {

class HostileConfiguration : public testing::Test {
protected:
    void SetUp() override {
        near_ = DTSock_UDP_Create("10.1.1.1", 5000);
        far_ = DTSock_UDP_Create("127.0.0.1", 6000);
        if (near_ < 0) GTEST_SKIP() << "needs a network of the test's own";
    }

    static int32_t answer(int32_t from, const std::string &text) {
        return DTSock_UDP_SendMessage(from, "10.1.1.1", 8998, text.empty() ? "x" : text.data(),
                                      static_cast<uint32_t>(text.size()));
    }

    static int32_t lookup() { return DTConfig_GetInt("net", "mtu", 77); }

    int32_t near_ = -1, far_ = -1;
};

} // namespace

TEST_F(HostileConfiguration, OfTwoServersTheFirstCountsAndTheSecondComesLate) {
    const int32_t ear = DTSock_UDP_Create("0.0.0.0", 8999);
    network.peer = [this] {
        answer(near_, "1");
        answer(far_, "2");
    };
    EXPECT_EQ(lookup(), 1);
    network.peer = [] {};
    EXPECT_EQ(lookup(), 2);
    char request[100];
    EXPECT_GT(DTSock_UDP_RecvMessage(ear, nullptr, nullptr, request, sizeof request - 1), 0);
    EXPECT_STREQ(request, "=>config net mtu 77"); // broadcast
    network.peer = [this] {
        answer(far_, "3");
        answer(near_, "4");
    };
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 5000), 1);
    EXPECT_EQ(lookup(), 4);
}

TEST_F(HostileConfiguration, AnswersOfEverySizeAreTakenAsFarAsTheyCount) {
    for (const size_t size : {1u, 999u, 1000u, 1001u, 65507u, 0u}) {
        network.peer = [=, this] { answer(near_, std::string(size, 'v')); };
        const std::string expected = size ? std::string(std::min<size_t>(size, 999), 'v') : "-";
        char value[1000];
        EXPECT_EQ(DTConfig_GetString("device", "name", "-", value), 1);
        EXPECT_EQ(value, expected) << size;
    }
}

TEST_F(HostileConfiguration, ALookupEndsInTimeHoweverManyOthersAnswer) {
    DTConfig_SetServer("10.1.1.1", 5000);
    network.peer = [this] { answer(far_, "1"); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(lookup(), 77);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}
