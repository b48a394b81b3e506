// A collection server that misbehaves, and a flood of datagrams at the command port.
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <random>
#include <sys/socket.h>
#include <unistd.h>

namespace {

CollectItem *pump;
const std::string text(1 << 20, 't');

void put_text(uint32_t) { Collect_PutString(pump, 1, text.c_str(), 3000); }

int32_t run(uint16_t port) { return Collect_Start("127.0.0.1", port, 1, 1, 2, 3); }

// Answers that there is room for, without waiting for more.
bool answer_too_much(int fd) {
    for (int i = 0; i < 4; ++i) send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return true;
}

bool answer_byte_by_byte(int fd) {
    for (const char byte : {'o', 'k', '!'}) {
        send(fd, &byte, 1, MSG_NOSIGNAL);
        usleep(500);
    }
    return true;
}

constexpr int32_t plenty = 60000; // milliseconds, for any machine

struct Behaviour {
    const char *name;
    CollectionServer::Answer answer;
    int32_t result;
    int32_t limit = 0; // milliseconds; a device without limits gets on with the others
};

const Behaviour behaviours[] = {
    {"silent", [](int) { return true; }, 0, 100},
    {"closing", [](int) { return false; }, 0},
    {"resetting", reset, 0},
    {"slow", answer_byte_by_byte, 1},
    {"slow, with limits", answer_byte_by_byte, 1, plenty},
    {"talkative", answer_too_much, 1},
    {"talkative, with limits", answer_too_much, 1, plenty},
};

} // namespace

// The run ends, gets through where that is possible, and the next one is as good as new.
TEST(HostileServer, NeitherBlocksNorLeaksNorConfuses) {
    for (const char *name : {"valve", "pump"}) pump = Collect_New(name, put_text, nullptr);
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    const int descriptors = open_descriptors();
    for (const auto &[name, answer, result, limit] : behaviours) {
        SCOPED_TRACE(name);
        CollectClient_SetTimeout(limit, limit, limit);
        {
            CollectionServer hostile(answer), good;
            EXPECT_EQ(run(hostile.port()), result);
            CollectClient_SetTimeout(0, 0, 0);
            EXPECT_EQ(run(good.port()), 1);
            EXPECT_EQ(hostile.payloads() == good.payloads(), result == 1);
        }
        EXPECT_EQ(outstanding(COLLECT_OWNER_ID), before);
        EXPECT_EQ(open_descriptors(), descriptors);
    }
}

// It answers in advance and reads nothing until the device can send no more: every message arrives
// whole in the end. Of another one that never reads the device ends the connection.
TEST(LazyServer, GetsWholeMessagesOrIsGivenUp) {
    constexpr uint32_t count = 7000;
    bool lazy = true;
    CollectionServer server([&](int fd) {
        if (std::exchange(lazy, false)) {
            send(fd, text.data(), count * 16, MSG_NOSIGNAL);
            usleep(300000);
        }
        return true;
    });
    CollectionServer deaf([](int fd) {
        while (send(fd, text.data(), text.size(), MSG_NOSIGNAL) > 0) {
        }
        return false;
    });
    const auto sends = [](uint32_t i) {
        CollectClient_AppendInt(i);
        CollectClient_AppendBuffer(text.data(), 1020);
        return CollectClient_Flush(0) == 1;
    };
    CollectClient_SetTimeout(0, plenty, plenty);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", server.port()), 1);
    for (uint32_t i = 0; i < count; ++i) ASSERT_TRUE(sends(i)) << i;
    CollectClient_SetTimeout(0, 100, plenty);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", deaf.port()), 1);
    uint32_t sent = 0;
    while (sent < 10 * count && sends(sent)) ++sent;
    EXPECT_LT(sent, 10 * count);
    deaf.messages();
    const std::vector<std::string> seen = server.payloads();
    ASSERT_EQ(seen.size(), count);
    for (uint32_t i = 0; i < count; ++i)
        ASSERT_TRUE(seen[i] == word(i) + text.substr(0, 1020)) << i;
}

namespace {

void command(int sender, uint32_t number, uint32_t sequence, uint32_t port) {
    const std::string datagram = word(16) + word(number) + word(sequence) + word(port);
    send(sender, datagram.data(), datagram.size(), 0);
}

// Noise of every size.
void noise(int sender, uint32_t count) {
    static std::minstd_rand random(1);
    const size_t size = count % 10000 == 0 ? 65507 : count % 2 ? 16 : random() % 100;
    std::string bytes(size, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random());
    send(sender, bytes.data(), size, 0);
}

// The messages that a command makes the device send; it is repeated, in case it is lost.
std::vector<Message> served(int sender, uint32_t number, uint32_t sequence, uint16_t *port) {
    CollectionServer server;
    *port = server.port();
    for (; !server.has_ended(); usleep(10000))
        command(sender, number, sequence, 0x70000u + server.port());
    return server.messages();
}

} // namespace

// The real loop, on a thread of its own.
TEST(CommandPort, IsServedBeforeAndAfterAFlood) {
    pump = Collect_New(
        "pump", [](uint32_t command) { Collect_PutInt(pump, 1, command); },
        [](uint32_t) { Collect_PutInt(pump, 3, 4); });
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    CollectClient_SetTimeout(plenty, plenty, plenty);
    testing::internal::CaptureStdout();             // where the loop reports every datagram
    const int descriptors = open_descriptors() + 2; // the loop's, and the sender's
    const int free = CollectClient_Init();
    ASSERT_GE(free, 0) << "UDP port 9099 is taken by another program";
    close(free);
    std::thread([] { Collect_Init(0x3412); }).detach();
    const int sender = sender_to(COLLECT_COMMAND_PORT);
    uint16_t gone;
    const std::vector<Message> collected = served(sender, 2, 7, &gone);
    const std::vector<Message> tested = served(sender, 3, 0, &gone);
    command(sender, 1, UINT32_MAX, gone); // a negative number
    for (uint32_t i = 0; i < 50000; ++i)
        i % 4 ? noise(sender, i) : command(sender, 1, 1, gone); // what was valid once
    const std::vector<Message> last = served(sender, 1, 4711, &gone);
    for (int tries = 0; tries < 6000 && open_descriptors() != descriptors; ++tries) usleep(10000);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(open_descriptors(), descriptors - 1); // nor where it was captured
    const Message opening = {0, 7, std::string("\x12\x34\0\0", 4)};
    const auto values = [](uint32_t key, uint32_t value) {
        return frame('\x81', 0, 0, key, word(value));
    };
    ASSERT_EQ(collected.size(), 4u);
    EXPECT_EQ(collected[0], opening);
    EXPECT_EQ(collected[2].payload, values(1, 2));
    ASSERT_EQ(tested.size(), 3u);
    EXPECT_TRUE(tested[1].payload.ends_with(values(3, 4)));
    ASSERT_EQ(last.size(), 4u);
    EXPECT_EQ(last[0].sequence, 4711u);
    EXPECT_LE(outstanding(COLLECT_OWNER_ID), before + 1040); // of a run that was given up
    EXPECT_EQ(g_collect_param.count, 1);
    EXPECT_NE(g_collect_param.logger, nullptr);
}
