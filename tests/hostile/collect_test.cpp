// A collection server that misbehaves, and a flood of datagrams at the command port.
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <optional>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

CollectItem *pump;

std::string word(uint32_t value) { return std::string(reinterpret_cast<char *>(&value), 4); }

void register_collectors() {
    static const std::string text(3000, 't');
    for (const char *name : {"valve", "pump"})
        pump = Collect_New(
            name, [](uint32_t) { Collect_PutString(pump, 1, text.c_str(), 0); }, nullptr);
}

int32_t run(uint16_t port) { return Collect_Start("127.0.0.1", port, 1, 1, 2, 3); }

std::vector<std::string> payloads(CollectionServer &server) {
    std::vector<std::string> all;
    for (const Message &message : server.messages()) all.push_back(message.payload);
    return all;
}

// As many bytes as there is room for.
void send_back_much(int fd) {
    const std::string megabyte(1 << 20, 'k');
    for (int i = 0; i < 4; ++i)
        send(fd, megabyte.data(), megabyte.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

struct Behaviour {
    const char *name;
    CollectionServer::Answer answer;
    int32_t result;
    bool answers = true; // so that a device without limits gets on
};

void PrintTo(const Behaviour &behaviour, std::ostream *out) { *out << behaviour.name; }

class HostileServer : public testing::TestWithParam<Behaviour> {};

const Behaviour behaviours[] = {
    {"silent", [](int) { return true; }, 0, false},
    {"byte_by_byte",
     [](int fd) {
         for (int i = 0; i < 3; ++i, usleep(500)) send(fd, "ok!" + i, 1, MSG_NOSIGNAL);
         return true;
     },
     1},
    {"resetting",
     [](int fd) {
         const linger at_once = {1, 0};
         return setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once) != 0;
     },
     0},
    {"closing", [](int) { return false; }, 0},
    {"talkative",
     [](int fd) {
         send_back_much(fd);
         return true;
     },
     1},
};

} // namespace

// The run ends in time, gets through where that is possible, and the next one is as good as new.
TEST_P(HostileServer, NeitherBlocksNorLeaksNorConfuses) {
    const Behaviour &behaviour = GetParam();
    register_collectors();
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    const int descriptor = lowest_free_descriptor();
    for (const int32_t limit : {100, 0}) {
        if (limit == 0 && !behaviour.answers) continue;
        CollectClient_SetTimeout(limit, limit, limit);
        std::vector<std::string> seen, expected;
        const auto begin = steady_clock::now();
        {
            CollectionServer hostile(behaviour.answer);
            EXPECT_EQ(run(hostile.port()), behaviour.result);
            EXPECT_LT(steady_clock::now() - begin, milliseconds(1500));
            CollectClient_End(); // of a run that was given up
            seen = payloads(hostile);
        }
        {
            CollectionServer good;
            EXPECT_EQ(run(good.port()), 1);
            expected = payloads(good);
        }
        if (behaviour.result == 1) {
            EXPECT_EQ(seen, expected);
        }
        EXPECT_EQ(outstanding(COLLECT_OWNER_ID), before);
        EXPECT_EQ(lowest_free_descriptor(), descriptor);
    }
}

INSTANTIATE_TEST_SUITE_P(, HostileServer, testing::ValuesIn(behaviours),
                         [](const auto &row) { return std::string(row.param.name); });

// It answers in advance and reads nothing until the device can send no more.
TEST(LazyServer, GetsEveryMessageWholeInTheEnd) {
    constexpr uint32_t count = 7000;
    bool lazy = true;
    CollectionServer server([&](int fd) {
        if (!lazy) return true;
        lazy = false;
        const std::string answers(count * 16, 'k');
        send(fd, answers.data(), answers.size(), MSG_NOSIGNAL);
        usleep(300000);
        return true;
    });
    CollectClient_SetTimeout(0, 3000, 3000);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", server.port()), 1);
    const std::string filler(1020, '.');
    for (uint32_t i = 0; i < count; ++i) {
        CollectClient_AppendInt(i);
        CollectClient_AppendBuffer(filler.data(), 1020);
        ASSERT_EQ(CollectClient_Flush(0), 1) << i;
    }
    CollectClient_Start("127.0.0.1", 1); // closes it
    ASSERT_EQ(server.messages().size(), count);
    for (uint32_t i = 0; i < count; ++i)
        ASSERT_TRUE(server.messages()[i].payload == word(i) + filler) << i;
}

TEST(LazyServer, ThatNeverReadsIsGivenUp) {
    CollectionServer server([](int fd) {
        const std::string much(1 << 20, 'k');
        while (send(fd, much.data(), much.size(), MSG_NOSIGNAL) > 0) {
        }
        return false;
    });
    CollectClient_SetTimeout(0, 100, 3000);
    ASSERT_EQ(CollectClient_Start("127.0.0.1", server.port()), 1);
    const std::string filler(1024, '.');
    int sent = 0;
    testing::internal::CaptureStdout();
    do CollectClient_AppendBuffer(filler.data(), 1024);
    while (CollectClient_Flush(0) == 1 && ++sent < 100000);
    const auto begin = steady_clock::now();
    EXPECT_EQ(CollectClient_Flush(0), 0);
    EXPECT_LT(steady_clock::now() - begin, milliseconds(50));
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "send error.\nsend error.\n");
    EXPECT_LT(sent, 100000);
}

namespace {

std::string command(uint32_t number, uint32_t sequence, uint32_t port) {
    return word(16) + word(number) + word(sequence) + word(port);
}

class Flood {
public:
    explicit Flood(std::string replayed) : replayed_(std::move(replayed)) {}

    std::string next() {
        ++count_;
        if (count_ % 50000 == 0) return bytes(65507);
        switch (count_ % 4) {
        case 0:
            return bytes(16);
        case 1:
            return bytes(random_() % 16);
        case 2:
            return bytes(17 + random_() % 100);
        default:
            return replayed_;
        }
    }

private:
    std::string bytes(size_t size) {
        std::string result(size, '\0');
        for (char &byte : result) byte = static_cast<char>(random_());
        return result;
    }

    std::string replayed_;
    uint32_t count_ = 0;
    std::minstd_rand random_{1};
};

int connect_to_command_port() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(COLLECT_COMMAND_PORT);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to);
    return fd;
}

// What the device prints by the thousand.
class NoOutput {
public:
    NoOutput() : kept_(dup(STDOUT_FILENO)) {
        fflush(stdout);
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDOUT_FILENO);
        close(nothing);
    }
    ~NoOutput() {
        fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }

private:
    int kept_;
};

// Repeats a command until the server has been served; how often it was sent.
int tries_until_served(int sender, CollectionServer &server, uint32_t sequence) {
    std::atomic<bool> served = false;
    std::thread waiting([&] {
        served = server.messages().size() == 5 && server.messages()[0].sequence == sequence;
    });
    int tries = 0;
    for (; !served && tries < 500; ++tries, usleep(10000)) {
        const std::string datagram = command(1, sequence, server.port());
        send(sender, datagram.data(), datagram.size(), 0);
    }
    waiting.join();
    return tries;
}

} // namespace

TEST(CommandPort, IsServedAfterAFlood) {
    constexpr int datagrams = 200000;
    for (const char *name : {"valve", "pump"})
        Collect_New(
            name, [](uint32_t) {}, nullptr);
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    CollectClient_SetTimeout(50, 50, 50);
    std::optional<NoOutput> quiet(std::in_place);
    std::thread([] { Collect_Init(0); }).detach();
    const int sender = connect_to_command_port();
    uint16_t gone;
    {
        CollectionServer first;
        gone = first.port();
        ASSERT_LT(tries_until_served(sender, first, 1), 500);
    }
    usleep(100000); // for the repeated ones
    const int descriptor = lowest_free_descriptor();
    Flood flood(command(1, 1, gone)); // what was valid once
    for (int i = 0; i < datagrams; ++i) {
        const std::string datagram = flood.next();
        send(sender, datagram.data(), datagram.size(), 0);
    }
    int tries;
    {
        CollectionServer last;
        tries = tries_until_served(sender, last, 4711);
    }
    usleep(100000);
    const int descriptor_after = lowest_free_descriptor();
    const uint32_t after = outstanding(COLLECT_OWNER_ID);
    quiet.reset();
    EXPECT_LT(tries, 300);
    EXPECT_EQ(descriptor_after, descriptor);
    EXPECT_LE(after, before + 1040); // the buffer of a run that was given up is kept
    EXPECT_EQ(g_collect_param.count, 2);
    close(sender);
}
