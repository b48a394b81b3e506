#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <dt/foundation.h>
#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string word(uint32_t value) { return std::string(reinterpret_cast<char *>(&value), 4); }

std::string half(uint16_t value) { return std::string(reinterpret_cast<char *>(&value), 2); }

std::string frame(uint8_t tag, uint32_t index, uint32_t section, uint32_t key) {
    return static_cast<char>(tag) + word(index) + word(section) + word(key);
}

std::string piece(uint8_t tag, const std::string &bytes) {
    return frame(tag, 1, 2, 3) + half(static_cast<uint16_t>(bytes.size())) + bytes;
}

bool start(const CollectionServer &server) {
    return CollectClient_Start("127.0.0.1", server.port()) == 1;
}

// Fills the message's payload so that this much room is left.
void leave_room(uint32_t room) {
    const std::string filler(1024 - room, '.');
    CollectClient_AppendBuffer(filler.data(), 1024 - room);
}

std::string printed(void (*work)()) {
    testing::internal::CaptureStdout();
    work();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(Messages, CarryTypeAndNumber) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 1036u + 4);
    CollectClient_SetType(7);
    CollectClient_AppendInt(0x01020304);
    CollectClient_AppendString("name");
    CollectClient_AppendBuffer("\0\1", 2);
    EXPECT_EQ(CollectClient_Flush(0), 1);
    EXPECT_EQ(CollectClient_Flush(77), 1);
    EXPECT_EQ(CollectClient_Flush(-5), 1);
    EXPECT_EQ(CollectClient_Flush(0), 1);
    CollectClient_SetType(2);
    CollectClient_AppendInt(9);
    CollectClient_End();
    EXPECT_THAT(server.messages(), ElementsAre(Message{7, 1,
                                                       word(0x01020304) + half(4) + "name" +
                                                           std::string(2, 0).replace(1, 1, 1, 1)},
                                               Message{7, 77, ""}, Message{7, UINT32_MAX - 4, ""},
                                               Message{7, 2, ""}, Message{2, 3, word(9)}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

TEST(Messages, RefuseWholeWhatDoesNotFit) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    const std::string long_text(70000, 'x');
    leave_room(4);
    CollectClient_AppendBuffer(long_text.data(), 5);
    CollectClient_AppendBuffer(long_text.data(), UINT32_MAX);
    CollectClient_AppendString("abc");
    CollectClient_AppendString(long_text.c_str());
    CollectClient_AppendString(nullptr);
    CollectClient_AppendString("ab"); // exactly fits
    CollectClient_AppendInt(1);
    CollectClient_End();
    EXPECT_THAT(server.messages(),
                ElementsAre(Message{0, 1, std::string(1020, '.') + half(2) + "ab"}));
}

TEST(ValueFrames, AreLaidOutByKind) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    EXPECT_EQ(CollectClient_CollectInt(1, 2, 3, 0xA0B0C0D0), 17);
    CollectClient_CollectLong(1, 2, 3, uint64_t{1} << 32 | 5);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "text", 0), 4);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "text", 2), 2);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "", 0), 0);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, "\0\1\2", 3), 3);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "text", -1), 0);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, nullptr, 1), 0);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, "x", 0), 0);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, nullptr, 1), 0);
    CollectClient_End();
    EXPECT_THAT(
        server.messages(),
        ElementsAre(Message{0, 1,
                            frame(0x81, 1, 2, 3) + word(0xA0B0C0D0) + frame(0x82, 1, 2, 3) +
                                word(5) + word(1) + piece(0x83, "text") + piece(0x83, "te") +
                                piece(0x83, "") + piece(0x84, std::string("\0\1\2", 3))}));
}

TEST(ValueFrames, GoIntoTheNextMessageWhenThereIsTooLittleRoom) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    leave_room(17);
    CollectClient_CollectInt(1, 2, 3, 4); // fills it exactly
    leave_room(16);                       // refused: there is no room at all
    CollectClient_CollectInt(1, 2, 3, 5); // sends, and begins the next
    CollectClient_Flush(0);
    leave_room(16);
    CollectClient_CollectInt(1, 2, 3, 6);
    CollectClient_Flush(0);
    leave_room(20);
    CollectClient_CollectLong(1, 2, 3, 7);
    CollectClient_Flush(0);
    leave_room(21);
    CollectClient_CollectLong(1, 2, 3, 8);
    CollectClient_End();
    const auto filled = [](size_t count) { return std::string(count, '.'); };
    EXPECT_THAT(
        server.messages(),
        ElementsAre(Message{0, 1, filled(1007) + frame(0x81, 1, 2, 3) + word(4)},
                    Message{0, 2, frame(0x81, 1, 2, 3) + word(5)}, Message{0, 3, filled(1008)},
                    Message{0, 4, frame(0x81, 1, 2, 3) + word(6)}, Message{0, 5, filled(1004)},
                    Message{0, 6, frame(0x82, 1, 2, 3) + word(7) + word(0)},
                    Message{0, 7, filled(1003) + frame(0x82, 1, 2, 3) + word(8) + word(0)}));
}

TEST(ValueFrames, LongValuesComeInPieces) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    const std::string bytes(2000, 'b');
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, bytes.data(), 2000), 1009);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, bytes.data(), 991), 991);
    CollectClient_Flush(0);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, bytes.c_str(), 1009), 1009); // one whole frame
    CollectClient_Flush(0);
    leave_room(24);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, bytes.c_str(), 1), 1);
    CollectClient_Flush(0);
    leave_room(25);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, bytes.c_str(), 11), 10);
    CollectClient_End();
    EXPECT_THAT(server.messages(),
                ElementsAre(Message{0, 1, piece(0x04, bytes.substr(0, 1009))},
                            Message{0, 2, piece(0x84, bytes.substr(0, 991))},
                            Message{0, 3, piece(0x83, bytes.substr(0, 1009))},
                            Message{0, 4, std::string(1000, '.')}, Message{0, 5, piece(0x83, "b")},
                            Message{0, 6, std::string(999, '.') + piece(0x03, "bbbbbbbbbb")}));
}

TEST(Connection, WithoutOneNothingHappens) {
    CollectClient_SetType(1);
    CollectClient_AppendInt(1);
    CollectClient_AppendString("x");
    CollectClient_AppendBuffer("x", 1);
    EXPECT_EQ(CollectClient_Flush(0), 0);
    EXPECT_EQ(CollectClient_CollectInt(1, 2, 3, 4), 0);
    EXPECT_EQ(CollectClient_CollectString(1, 2, 3, "x", 0), 0);
    EXPECT_EQ(CollectClient_CollectBuffer(1, 2, 3, "x", 1), 0);
    CollectClient_CollectLong(1, 2, 3, 4);
    CollectClient_End();
    EXPECT_EQ(platform.allocations, 0u);
}

// No descriptor is held before the first connection, after a failed one and after the end: what
// then carries its number belongs to somebody else.
TEST(Connection, NeverTouchesADescriptorThatIsNotItsOwn) {
    close(0);
    ASSERT_EQ(lowest_free_descriptor(), 0);
    CollectClient_Start("127.0.0.1", 1);
    ASSERT_EQ(lowest_free_descriptor(), 0); // closed after the failure
    CollectionServer server, next;          // the first listens on descriptor 0
    ASSERT_TRUE(start(server));
    CollectClient_End();
    const int other = dup(0);
    EXPECT_EQ(printed([] { CollectClient_Start("127.0.0.1", 1); }), "connect error.\n");
    EXPECT_EQ(CollectClient_Flush(0), 0);
    CollectClient_End();
    ASSERT_TRUE(start(next));
    CollectClient_End();
    EXPECT_EQ(close(other), 0);
    EXPECT_THAT(server.messages(), SizeIs(1));
    EXPECT_THAT(next.messages(), SizeIs(1));
}

TEST(Connection, TheBufferOutlivesAFailedRun) {
    CollectionServer first(1), second;
    ASSERT_TRUE(start(first));
    CollectClient_SetType(2);
    EXPECT_EQ(CollectClient_Flush(0), 1);
    first.messages();
    CollectClient_AppendInt(1);
    CollectClient_Flush(0); // into the closed connection
    static int failed;
    EXPECT_EQ(printed([] { failed = CollectClient_Flush(0); }), "send error.\n");
    EXPECT_EQ(failed, 0);
    CollectClient_AppendInt(3);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 1040u);
    EXPECT_EQ(CollectClient_Start("127.0.0.1", 1), 0);
    EXPECT_EQ(printed([] { CollectClient_Flush(0); }), "send error.\n"); // no connection at all
    CollectClient_AppendInt(4);
    ASSERT_TRUE(start(second));
    CollectClient_End();
    EXPECT_THAT(second.messages(), ElementsAre(Message{2, 5, word(4)}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

TEST(Connection, AClosedOneCountsAsAnAnswerAndAResetDoesNot) {
    const int pair = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(pair, reinterpret_cast<sockaddr *>(&address), size), 0);
    ASSERT_EQ(listen(pair, 2), 0);
    getsockname(pair, reinterpret_cast<sockaddr *>(&address), &size);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", ntohs(address.sin_port)), 1);
    int peer = accept(pair, nullptr, nullptr);
    shutdown(peer, SHUT_WR);
    EXPECT_EQ(CollectClient_Flush(0), 1);
    const linger at_once = {1, 0};
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", ntohs(address.sin_port)), 1);
    close(peer);
    peer = accept(pair, nullptr, nullptr);
    std::thread resetting([=] {
        char byte;
        recv(peer, &byte, 1, 0);
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close(peer);
    });
    EXPECT_EQ(printed([] { CollectClient_Flush(0); }), "recv error.\n");
    resetting.join();
    close(pair);
    CollectClient_End();
}

TEST(Connection, FailsWithoutAnAddressASocketOrMemory) {
    EXPECT_EQ(printed([] {
                  CollectClient_Start(nullptr, 1);
                  CollectClient_Start("nowhere", 1);
                  network.failing["socket"] = EMFILE;
                  CollectClient_Start("127.0.0.1", 1);
                  network.failing.clear();
              }),
              "connect error.\nconnect error.\nconnect error.\n");
    CollectionServer server, next;
    platform.fail_allocations_from(1);
    EXPECT_FALSE(start(server)); // the connection stays, to be closed by the next
    platform.allocations_work();
    ASSERT_TRUE(start(next));
    CollectClient_End();
    EXPECT_THAT(server.messages(), IsEmpty());
    EXPECT_THAT(next.messages(), SizeIs(1));
}

class CommandSocket : public testing::Test {
protected:
    void SetUp() override { ASSERT_GE(socket_, 0); }
    ~CommandSocket() override {
        close(socket_);
        close(sender_);
    }

    // What the device makes of a datagram.
    int32_t receive(const std::string &datagram) {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(COLLECT_COMMAND_PORT);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sendto(sender_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&to),
               sizeof to);
        command_ = port_ = 99;
        strcpy(address_, "unset");
        testing::internal::CaptureStdout();
        const int32_t sequence = CollectClient_WaitFor(socket_, 1, 2, &command_, address_, &port_);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "size=" + std::to_string(std::min<size_t>(datagram.size(), 16)) + "\n");
        return sequence;
    }

    int32_t socket_ = CollectClient_Init();
    int sender_ = socket(AF_INET, SOCK_DGRAM, 0);
    uint32_t command_, port_;
    char address_[16];
};

TEST_F(CommandSocket, AcceptsAValidCommand) {
    EXPECT_EQ(receive(word(16) + word(2) + word(7) + word(5000)), 7);
    EXPECT_EQ(command_, 2u);
    EXPECT_EQ(port_, 5000u);
    EXPECT_STREQ(address_, "127.0.0.1");
    EXPECT_EQ(receive(word(16) + word(3) + word(0) + word(1) + "and more"), 0); // cut to 16
}

TEST_F(CommandSocket, TakesWhatAShortDatagramDoesNotReachForZero) {
    EXPECT_EQ(receive(""), 0);
    EXPECT_EQ(command_, 0u);
    EXPECT_EQ(receive("\2"), -1);
    EXPECT_EQ(receive(std::string("\2\0", 2)), 0);
    EXPECT_EQ(receive(word(8) + word(2)), 0);
    EXPECT_EQ(command_ + 10 * port_, 2u);
    const std::string fifteen = word(15) + word(1) + word(0x01020304) + std::string("\1\2\3");
    EXPECT_EQ(receive(fifteen), 0x01020304);
    EXPECT_EQ(port_, 0x030201u);
}

TEST_F(CommandSocket, RejectsInvalidOnesAndStoresNothing) {
    for (const std::string &datagram :
         {word(20) + word(1) + word(0) + word(1), word(15) + word(1) + word(0) + word(1),
          word(16) + word(4) + word(0) + word(1), word(16) + word(UINT32_MAX) + word(0) + word(1),
          word(20) + word(1) + word(0) + word(1) + word(0), std::string("\0\0\0\0\0", 5)}) {
        EXPECT_EQ(receive(datagram), -1);
        EXPECT_EQ(command_, 99u);
        EXPECT_STREQ(address_, "unset");
    }
    EXPECT_EQ(receive(word(16) + word(1) + word(0x80000000) + word(1)), INT32_MIN);
}

TEST_F(CommandSocket, AcceptsOnlyAllowedSendersOnceOneIsGiven) {
    const std::string valid = word(16) + word(2) + word(7) + word(5000);
    for (const char *none : {"", "localhost", "127.1", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5"})
        EXPECT_EQ(CollectClient_Allow(none), 0) << none;
    EXPECT_EQ(receive(valid), 7); // none given yet
    EXPECT_EQ(CollectClient_Allow("10.0.0.1"), 1);
    EXPECT_EQ(receive(valid), -1);
    EXPECT_EQ(command_, 99u);
    EXPECT_STREQ(address_, "unset");
    for (int i = 2; i <= 15; ++i)
        EXPECT_EQ(CollectClient_Allow(("10.0.0." + std::to_string(i)).c_str()), 1);
    EXPECT_EQ(CollectClient_Allow("127.0.0.1"), 1); // the 16th
    EXPECT_EQ(CollectClient_Allow("10.0.0.16"), 0);
    EXPECT_EQ(CollectClient_Allow("10.0.0.3"), 1); // is there already
    EXPECT_EQ(receive(valid), 7);
    EXPECT_EQ(CollectClient_Allow(nullptr), 1);
    EXPECT_EQ(receive(valid), 7);
    EXPECT_EQ(CollectClient_Allow("10.0.0.1"), 1);
    EXPECT_EQ(receive(valid), -1);
}

TEST_F(CommandSocket, IsRefusedWhileThePortIsTaken) {
    const int before = lowest_free_descriptor();
    EXPECT_EQ(CollectClient_Init(), -1);
    EXPECT_EQ(lowest_free_descriptor(), before);
    EXPECT_EQ(CollectClient_WaitFor(-1, 1, 2, &command_, address_, &port_), -1);
    EXPECT_EQ(CollectClient_WaitFor(socket_, 1, 2, nullptr, address_, &port_), -1);
    network.failing["recvfrom"] = EINTR;
    static int32_t sequence;
    EXPECT_EQ(printed([] {
                  uint32_t command, port;
                  char address[16];
                  sequence = CollectClient_WaitFor(5, 1, 2, &command, address, &port);
              }),
              "size=-1\n");
    EXPECT_EQ(sequence, -1);
}
