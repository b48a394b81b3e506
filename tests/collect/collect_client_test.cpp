#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;
namespace internal = testing::internal;

namespace {

const std::string text(2000, 'b');

bool start(const CollectionServer &server) {
    return CollectClient_Start("127.0.0.1", server.port()) == 1;
}

std::string printed(int32_t (*work)()) {
    internal::CaptureStdout();
    EXPECT_LE(work(), 0);
    fflush(stdout);
    return internal::GetCapturedStdout();
}

int32_t connect_to_nobody() { return CollectClient_Start("127.0.0.1", 1); }

int32_t flush() { return CollectClient_Flush(0); }

} // namespace

TEST(Messages, CarryTypeNumberAndWholeValuesOnly) {
    CollectionServer server, next;
    ASSERT_TRUE(start(server));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 1036u + 4);
    CollectClient_SetType(7);
    CollectClient_AppendInt(0x01020304);
    CollectClient_AppendString("name");
    CollectClient_AppendBuffer("\0\1", 2);
    for (const int32_t number : {0, 77, -5, 0}) EXPECT_EQ(CollectClient_Flush(number), 1);
    CollectClient_SetType(2);
    CollectClient_AppendBuffer(text.data(), 1020);
    CollectClient_AppendBuffer(text.data(), 5);
    CollectClient_AppendBuffer(text.data(), UINT32_MAX);
    CollectClient_AppendString("abc");
    CollectClient_AppendString(std::string(70000, 'x').c_str());
    CollectClient_AppendString(nullptr);
    CollectClient_AppendString("ab"); // exactly fits
    CollectClient_AppendInt(1);
    CollectClient_End();
    EXPECT_THAT(
        server.messages(),
        ElementsAre(Message{7, 1, word(0x01020304) + counted("name") + std::string("\0\1", 2)},
                    Message{7, 77, ""}, Message{7, UINT32_MAX - 4, ""}, Message{7, 2, ""},
                    Message{2, 3, text.substr(0, 1020) + counted("ab")}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
    ASSERT_TRUE(start(next));
    EXPECT_EQ(CollectClient_CollectInt(1, 2, 3, 4), 17);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "text", 0), 4);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "text", -1), 0);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, text.data(), 2000), 1024 - 17 - 19 - 15);
    CollectClient_End();
    EXPECT_EQ(next.messages()[0].sequence, 4u);
}

TEST(Connection, TheBufferOutlivesAFailedRun) {
    CollectionServer first(1), second;
    ASSERT_TRUE(start(first));
    CollectClient_SetType(2);
    EXPECT_EQ(flush(), 1);
    first.messages();
    EXPECT_EQ(flush(), 1); // a connection that was closed is an answer
    EXPECT_EQ(printed(flush), "send error.\n");
    CollectClient_AppendInt(3);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 1040u);
    EXPECT_EQ(printed(connect_to_nobody), "connect error.\n");
    EXPECT_EQ(printed(flush), "send error.\n"); // no connection at all
    CollectClient_AppendInt(4);
    ASSERT_TRUE(start(second));
    CollectClient_End();
    EXPECT_THAT(second.messages(), ElementsAre(Message{2, 5, word(4)}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

struct CommandSocket : testing::Test {
    // What the device makes of what is in the socket; nothing is stored for an invalid datagram.
    int32_t receive(int32_t socket, const std::string &output) {
        command_ = port_ = 99;
        strcpy(address_, "unset");
        internal::CaptureStdout();
        const int32_t sequence = CollectClient_WaitFor(socket, 1, 2, &command_, address_, &port_);
        EXPECT_EQ(internal::GetCapturedStdout(), output);
        EXPECT_STREQ(address_, command_ == 99 ? "unset" : "127.0.0.1");
        return sequence;
    }
    int32_t receive(const std::string &datagram) {
        network.simulated = true;
        network.replies = {{"127.0.0.1", 1, datagram}};
        return receive(0, "size=" + std::to_string(std::min<size_t>(datagram.size(), 16)) + "\n");
    }

    const std::string valid_ = word(16) + word(2) + word(7) + word(5000);
    uint32_t command_, port_;
    char address_[16];
};

// A short datagram is valid with zeros behind it, and one that is too long is cut.
TEST_F(CommandSocket, AcceptsWhatHasItsLengthAndAKnownCommand) {
    const struct {
        std::string datagram;
        int32_t sequence;
        uint32_t command, port;
    } rows[] = {
        {valid_, 7, 2, 5000},
        {word(16) + word(3) + word(0) + word(1) + "and more", 0, 3, 1},
        {word(16) + word(1) + word(0x80000000) + word(1), INT32_MIN, 1, 1},
        {word(15) + word(1) + word(0x01020304) + "\1\2\3", 0x01020304, 1, 0x030201},
        {half(2), 0, 0, 0},
        {"", 0, 0, 0},
        {word(15) + word(1) + word(0) + word(1), -1, 99, 99},
        {word(20) + word(1) + word(0) + word(1) + word(0), -1, 99, 99},
        {word(16) + word(4) + word(0) + word(1), -1, 99, 99},
    };
    for (const auto &[datagram, sequence, command, port] : rows) {
        EXPECT_EQ(receive(datagram), sequence) << testing::PrintToString(datagram);
        EXPECT_EQ(command_, command);
        EXPECT_EQ(port_, port);
    }
    EXPECT_EQ(CollectClient_WaitFor(0, 1, 2, nullptr, address_, &port_), -1);
}

TEST_F(CommandSocket, AcceptsOnlyAllowedSendersOnceOneIsGiven) {
    for (const char *none : {"", "localhost", "127.1", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5"})
        EXPECT_EQ(CollectClient_Allow(none), 0) << none;
    EXPECT_EQ(receive(valid_), 7); // none given yet
    for (int i = 1; i <= 15; ++i) {
        EXPECT_EQ(CollectClient_Allow(("10.0.0." + std::to_string(i)).c_str()), 1);
        EXPECT_EQ(receive(valid_), -1);
        EXPECT_EQ(command_, 99u);
    }
    EXPECT_EQ(CollectClient_Allow("127.0.0.1"), 1); // the 16th
    EXPECT_EQ(CollectClient_Allow("10.0.0.16"), 0);
    EXPECT_EQ(CollectClient_Allow("10.0.0.3"), 1); // is there already
    EXPECT_EQ(receive(valid_), 7);
    EXPECT_EQ(CollectClient_Allow(nullptr), 1);
    EXPECT_EQ(CollectClient_Allow("10.0.0.1"), 1);
    EXPECT_EQ(receive(valid_), -1);
}

TEST_F(CommandSocket, DropsWhatHasWaitedTooLongByBothClocksOnRequest) {
    uint16_t port;
    const int socket = bind_to_loopback(SOCK_DGRAM, &port), sender = sender_to(port);
    const auto received = [&](int count, const std::string &output) {
        for (int i = 0; i < count; ++i) send(sender, valid_.data(), valid_.size(), 0);
        usleep(50000);
        int32_t sum = 0;
        for (int i = 0; i < count; ++i) sum += receive(socket, output);
        return sum;
    };
    CollectClient_SetMaxAge(20);
    CollectClient_SetTrace(0);
    for (int i = 0; i < 100 && received(1, "") == 7; ++i) // until the system notes arrivals
        EXPECT_LT(i, 99);
    EXPECT_EQ(received(3, ""), -3); // the first that is dropped makes the next no younger
    CollectClient_SetTrace(1);
    EXPECT_EQ(received(1, "size=16\n"), -1);
    fake_clock.microseconds = 1000000; // set back
    EXPECT_EQ(received(1, "size=16\n"), 7);
    fake_clock.microseconds = -1;
    CollectClient_SetMaxAge(0);
    EXPECT_EQ(received(1, "size=16\n"), 7);
    CollectClient_SetMaxAge(3600000);
    network.failing["recvfrom"] = EINTR;
    EXPECT_EQ(receive(socket, "size=-1\n"), -1); // a wait, before the clock is set by decades
    network.failing.clear();
    fake_clock.microseconds = 3000000000000000;
    EXPECT_EQ(received(1, "size=16\n"), 7);
}
