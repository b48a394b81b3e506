#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

const std::string text(2000, 'b');

std::string piece(char tag, const std::string &bytes) {
    return frame(tag, 1, 2, 3, counted(bytes));
}

bool start(const CollectionServer &server) {
    return CollectClient_Start("127.0.0.1", server.port()) == 1;
}

// Fills the message's payload so that this much room is left.
void leave_room(uint32_t room) { CollectClient_AppendBuffer(text.data(), 1024 - room); }

std::string printed(int32_t (*work)()) {
    testing::internal::CaptureStdout();
    EXPECT_LE(work(), 0);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
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
    leave_room(4);
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
    CollectClient_End();
    EXPECT_THAT(next.messages(), ElementsAre(Message{0, 4, ""}));
}

// What a call puts behind a payload that leaves so much room or, when it does not fit there, into
// the next message.
TEST(ValueFrames, AreLaidOutByKindAndGoWhereThereIsRoom) {
    const auto put_int = [] { return CollectClient_CollectInt(1, 2, 3, 0xA0B0C0D0); };
    const auto put_long = [] {
        CollectClient_CollectLong(1, 2, 3, uint64_t{1} << 32 | 5);
        return 0;
    };
    const auto put = [](const char *from, int32_t length) {
        return [=] { return CollectClient_CollectString(1, 2, 3, from, length); };
    };
    const auto put_bytes = [](const char *from, int32_t length) {
        return [=] { return CollectClient_CollectBuffer(1, 2, 3, from, length); };
    };
    const char *const b = text.data();
    const struct {
        uint32_t room;
        bool fits;
        std::function<int32_t()> put;
        int32_t taken;
        std::string sent;
    } rows[] = {
        {17, true, put_int, 17, frame('\x81', 1, 2, 3, word(0xA0B0C0D0))},
        {16, false, put_int, 17, frame('\x81', 1, 2, 3, word(0xA0B0C0D0))},
        {21, true, put_long, 0, frame('\x82', 1, 2, 3, word(5) + word(1))},
        {20, false, put_long, 0, frame('\x82', 1, 2, 3, word(5) + word(1))},
        {25, true, put(b, 11), 10, piece('\x03', text.substr(0, 10))},
        {25, true, put(b, 10), 10, piece('\x83', text.substr(0, 10))},
        {24, false, put(b, 1), 1, piece('\x83', "b")},
        {1024, true, put(b, 1009), 1009, piece('\x83', text.substr(0, 1009))},
        {1024, true, put_bytes(b, 1010), 1009, piece('\x04', text.substr(0, 1009))},
        {1024, true, put_bytes("\0\1\2", 3), 3, piece('\x84', std::string("\0\1\2", 3))},
        {1024, true, put("text", 0), 4, piece('\x83', "text")},
        {1024, true, put("", 0), 0, piece('\x83', "")},
        {1024, true, put("text", -1), 0, ""},
        {1024, true, put_bytes("x", 0), 0, ""},
    };
    for (const auto &[room, fits, call, taken, sent] : rows) {
        CollectionServer server;
        ASSERT_TRUE(start(server));
        leave_room(room);
        EXPECT_EQ(call(), taken);
        CollectClient_End();
        const std::string before = text.substr(0, 1024 - room);
        if (fits)
            EXPECT_THAT(server.payloads(), ElementsAre(before + sent));
        else
            EXPECT_THAT(server.payloads(), ElementsAre(before, sent));
    }
}

TEST(Connection, TheBufferOutlivesAFailedRun) {
    CollectionServer first(1), second;
    ASSERT_TRUE(start(first));
    CollectClient_SetType(2);
    EXPECT_EQ(flush(), 1);
    first.messages();
    flush(); // into the closed connection
    EXPECT_EQ(printed(flush), "send error.\n");
    CollectClient_AppendInt(3);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 1040u);
    EXPECT_EQ(connect_to_nobody(), 0);
    EXPECT_EQ(printed(flush), "send error.\n"); // no connection at all
    CollectClient_AppendInt(4);
    ASSERT_TRUE(start(second));
    CollectClient_End();
    EXPECT_THAT(second.messages(), ElementsAre(Message{2, 5, word(4)}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

TEST(Connection, AClosedOneCountsAsAnAnswerAndAResetDoesNot) {
    CollectionServer closing([](int) { return false; }), resetting(reset);
    ASSERT_TRUE(start(closing));
    EXPECT_EQ(flush(), 1);
    ASSERT_TRUE(start(resetting));
    EXPECT_EQ(printed(flush), "recv error.\n");
}

struct CommandSocket : testing::Test {
    // What the device makes of a datagram; nothing is stored for an invalid one.
    int32_t receive(const std::string &datagram) {
        network.simulated = true;
        network.replies = {{"127.0.0.1", 1, datagram}};
        command_ = port_ = 99;
        strcpy(address_, "unset");
        testing::internal::CaptureStdout();
        const int32_t sequence = CollectClient_WaitFor(0, 1, 2, &command_, address_, &port_);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "size=" + std::to_string(std::min<size_t>(datagram.size(), 16)) + "\n");
        EXPECT_STREQ(address_, command_ == 99 ? "unset" : "127.0.0.1");
        return sequence;
    }

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
        {word(16) + word(2) + word(7) + word(5000), 7, 2, 5000},
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
}

TEST_F(CommandSocket, AcceptsOnlyAllowedSendersOnceOneIsGiven) {
    const std::string valid = word(16) + word(2) + word(7) + word(5000);
    for (const char *none : {"", "localhost", "127.1", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5"})
        EXPECT_EQ(CollectClient_Allow(none), 0) << none;
    EXPECT_EQ(receive(valid), 7); // none given yet
    for (int i = 1; i <= 15; ++i) {
        EXPECT_EQ(CollectClient_Allow(("10.0.0." + std::to_string(i)).c_str()), 1);
        EXPECT_EQ(receive(valid), -1);
        EXPECT_EQ(command_, 99u);
    }
    EXPECT_EQ(CollectClient_Allow("127.0.0.1"), 1); // the 16th
    EXPECT_EQ(CollectClient_Allow("10.0.0.16"), 0);
    EXPECT_EQ(CollectClient_Allow("10.0.0.3"), 1); // is there already
    EXPECT_EQ(receive(valid), 7);
    EXPECT_EQ(CollectClient_Allow(nullptr), 1);
    EXPECT_EQ(CollectClient_Allow("10.0.0.1"), 1);
    EXPECT_EQ(receive(valid), -1);
}

TEST_F(CommandSocket, IsRefusedWhileThePortIsTaken) {
    const int32_t taken = CollectClient_Init();
    ASSERT_GE(taken, 0) << "UDP port 9099 is taken by another program";
    const int before = open_descriptors();
    EXPECT_EQ(CollectClient_Init(), -1);
    EXPECT_EQ(Collect_Init(0), -1);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(g_collect_param.logger, nullptr);
    EXPECT_EQ(CollectClient_WaitFor(taken, 1, 2, nullptr, address_, &port_), -1);
}
