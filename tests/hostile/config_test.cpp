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
        const std::string reason = enter_private_network("10.1.1.1");
        if (!reason.empty()) GTEST_SKIP() << reason;
        near_ = DTSock_UDP_Create("10.1.1.1", 5000);
        far_ = DTSock_UDP_Create("127.0.0.1", 6000);
    }
    ~HostileConfiguration() override {
        DTSock_UDP_Close(near_);
        DTSock_UDP_Close(far_);
    }

    static int32_t answer(int32_t from, const std::string &text) {
        return DTSock_UDP_SendMessage(from, "10.1.1.1", 8998, text.empty() ? "x" : text.data(),
                                      static_cast<uint32_t>(text.size()));
    }

    void at_next_wait(std::function<void()> work) {
        pending_ = std::move(work);
        network.peer = [this] {
            if (const auto now = std::exchange(pending_, nullptr)) now();
        };
    }

    static int32_t lookup() { return DTConfig_GetInt("net", "mtu", 77); }

    int32_t near_ = -1, far_ = -1;
    std::function<void()> pending_;
};

} // namespace

TEST_F(HostileConfiguration, OfTwoServersTheFirstCountsAndTheSecondComesLate) {
    at_next_wait([this] {
        answer(near_, "1");
        answer(far_, "2");
    });
    EXPECT_EQ(lookup(), 1);
    EXPECT_EQ(lookup(), 2);
    EXPECT_EQ(network.sent.back().address, "10.1.1.1");
    at_next_wait([this] {
        answer(far_, "3");
        answer(near_, "4");
    });
    ASSERT_EQ(DTConfig_SetServer("10.1.1.1", 5000), 1);
    EXPECT_EQ(lookup(), 4);
}

TEST_F(HostileConfiguration, AnswersOfEverySizeAreTakenAsFarAsTheyCount) {
    for (int round = 0; round < 2; ++round) {
        for (const size_t size : {1u, 999u, 1000u, 1001u, 65507u, 0u}) {
            at_next_wait([=, this] {
                EXPECT_EQ(answer(near_, std::string(size, 'v')), static_cast<int32_t>(size));
            });
            const std::string expected = size ? std::string(std::min<size_t>(size, 999), 'v') : "-";
            char value[1000];
            EXPECT_EQ(DTConfig_GetString("device", "name", "-", value), 1);
            EXPECT_EQ(value, expected) << size;
        }
        DTConfig_SetServer("10.1.1.1", 5000); // and once more
    }
}

TEST_F(HostileConfiguration, ALookupEndsInTimeHoweverManyOthersAnswer) {
    using std::chrono::milliseconds;
    DTConfig_SetServer("10.1.1.1", 5000);
    network.peer = [this] { answer(far_, "1"); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(lookup(), 77);
    const auto passed = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(passed, milliseconds(1000));
    EXPECT_LT(passed, milliseconds(2000));
}
