// Collection servers that misbehave, signals without end, calls of the system that fail, and the
// descriptors that the library holds.
#include "support/files.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <base/endpoint.h>
#include <dt/dt.h>
#include <gmock/gmock.h>

#include <chrono>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

using namespace testing;
using std::chrono::steady_clock;

namespace {

CollectItem *pump;
const std::string text(1 << 20, 't');

// As long as it lasts, a signal every few milliseconds interrupts whatever waits.
struct Signals {
    Signals() {
        struct sigaction action = {};
        action.sa_handler = [](int) { count = count + 1; };
        sigaction(SIGALRM, &action, nullptr);
        ualarm(5000, 5000);
    }
    ~Signals() { ualarm(0, 0); }
    static inline volatile sig_atomic_t count;
};

int32_t start(uint16_t port) { return CollectClient_Start("127.0.0.1", port); }

int32_t run(uint16_t port) { return Collect_Start("127.0.0.1", port, 1, 1, 2, 3); }

void put_text(uint32_t) {
    Collect_PutString(pump, 1, text.c_str(), 3000);
    EXPECT_EQ(fcntl(network.connected, F_GETFL) & O_NONBLOCK, 0); // with a limit on connects, too
}

// Answers that there is room for, without waiting for more.
bool answer_too_much(int fd) {
    for (int i = 0; i < 4; ++i) send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return true;
}

bool answer_byte_by_byte(int fd) {
    for (const char byte : {'o', 'k', '!'}) {
        usleep(8000);
        send(fd, &byte, 1, MSG_NOSIGNAL);
    }
    return true;
}

constexpr int32_t ample = 100000;

const struct {
    const char *name;
    CollectionServer::Answer answer;
    int32_t result;
    const char *output;
    int32_t connecting, waiting; // limits, milliseconds
} behaviours[] = {
    {"silent", [](int) { return true; }, 0, "recv error.\nsend error.\n", ample, 100},
    {"closing", [](int) { return false; }, 0, "", -1, INT32_MIN},
    {"resetting", reset, 0, "recv error.\n", 0, 0},
    {"slow", answer_byte_by_byte, 1, "", 0, 0},
    {"slow, with one limit", answer_byte_by_byte, 1, "", ample, 0},
    {"slow, with limits", answer_byte_by_byte, 1, "", INT32_MAX, ample},
    {"talkative", answer_too_much, 1, "", 0, 0},
    {"talkative, with limits", answer_too_much, 1, "", ample, INT32_MAX},
};

} // namespace

// The run ends when it should, gets through where that is possible, and the next one is as good as
// new. A silent server delays it once, not with every message.
TEST(HostileServer, NeitherBlocksNorLeaksNorConfusesWhateverTheSignals) {
    for (const char *name : {"valve", "pump"}) pump = Collect_New(name, put_text, nullptr);
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    const int descriptors = open_descriptors();
    const Signals signals;
    for (const auto &[name, answer, result, output, connecting, waiting] : behaviours) {
        SCOPED_TRACE(name);
        CollectClient_SetTimeout(connecting, waiting, waiting);
        network.waits.clear();
        CollectionServer hostile(answer), good;
        const auto begin = steady_clock::now();
        internal::CaptureStdout();
        EXPECT_EQ(run(hostile.port()), result);
        EXPECT_EQ(internal::GetCapturedStdout().rfind(output, 0), 0u);
        // Without a limit at most those for a connect that a signal interrupted, which have no end.
        EXPECT_EQ(Matches(Each(-1))(network.waits), connecting <= 0);
        const auto passed = steady_clock::now() - begin;
        CollectClient_SetTimeout(0, 0, 0);
        EXPECT_EQ(run(good.port()), 1);
        EXPECT_EQ(hostile.payloads() == good.payloads(), result == 1);
        if (waiting == 100) {
            EXPECT_GE(passed, std::chrono::milliseconds(100));
            EXPECT_THAT(hostile.messages(), SizeIs(1));
        }
        EXPECT_EQ(outstanding(COLLECT_OWNER_ID), before);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_GT(signals.count, 0);
}

// It answers in advance and reads nothing until the device can send no more: every message arrives
// whole in the end. When it reads no more at all the device ends the connection.
TEST(LazyServer, GetsWholeMessagesOrIsGivenUp) {
    constexpr uint32_t count = 7000;
    CollectionServer server([read = 0u](int fd) mutable {
        if (read == 0) send(fd, text.data(), count * 16, MSG_NOSIGNAL);
        if (read == 0) usleep(300000);
        if (++read <= count) return true;
        while (send(fd, text.data(), text.size(), MSG_NOSIGNAL) > 0) {
        }
        return false;
    });
    const auto sends = [](uint32_t i) {
        CollectClient_AppendInt(i);
        CollectClient_AppendBuffer(text.data(), 1020);
        return CollectClient_Flush(0) == 1;
    };
    ASSERT_EQ(start(server.port()), 1);
    const Signals signals;
    uint32_t sent = 0;
    for (CollectClient_SetTimeout(0, ample, ample); sent < count; ++sent) ASSERT_TRUE(sends(sent));
    for (CollectClient_SetTimeout(0, 100, ample); sends(sent); ++sent) ASSERT_LT(sent, 10 * count);
    const std::vector<std::string> seen = server.payloads();
    ASSERT_EQ(seen.size(), count + 1);
    for (uint32_t i = 0; i < count; ++i)
        ASSERT_TRUE(seen[i] == word(i) + text.substr(0, 1020)) << i;
}

TEST(Connection, AnyCallThatFailsIsAnErrorAndLosesNoDescriptor) {
    uint16_t port, full;
    listen_on_loopback(&port, 9);
    listen_on_loopback(&full, 0);
    const sockaddr_in address = dt::endpoint(htonl(INADDR_LOOPBACK), full);
    for (int i = 0; i < 4; ++i) // whoever connects now is left waiting
        connect(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0), dt::generic(&address),
                sizeof address);
    CollectClient_SetTimeout(80, 0, 0);
    const int before = open_descriptors();
    {
        const auto begin = steady_clock::now();
        const Signals signals;
        EXPECT_EQ(start(full), 0);
        EXPECT_GE(steady_clock::now() - begin, std::chrono::milliseconds(80));
    }
    CollectClient_SetTimeout(ample, 0, 0);
    for (const char *none : {static_cast<const char *>(nullptr), "nowhere"})
        EXPECT_EQ(CollectClient_Start(none, port), 0);
    for (const char *call : {"socket", "connect", "poll", "SO_ERROR"}) {
        network.failing = {{call, ENOMEM}};
        EXPECT_EQ(start(port), 0);
        EXPECT_EQ(open_descriptors(), before) << call;
    }
    network.failing = {{"connect", EINTR}}; // goes on by itself
    EXPECT_EQ(start(port), 1);
    CollectClient_Start(nullptr, 1); // closes it
    const int other = dup(1);        // takes its number
    CollectClient_Start(nullptr, 1);
    EXPECT_EQ(close(other), 0);
    EXPECT_EQ(open_descriptors(), before);
}

namespace {

int file, file_flags; // of the fault log file, as long as it was open

} // namespace

extern "C" int fclose(FILE *closing) {
    file = fileno(closing);
    file_flags = fcntl(file, F_GETFD);
    return reinterpret_cast<decltype(fclose) *>(dlsym(RTLD_NEXT, "fclose"))(closing);
}

TEST(Descriptors, AreNoStandardStreamsAndNotInherited) {
    uint16_t port;
    listen_on_loopback(&port, 9);
    network.simulated = fault_log.full = true;
    DTFault_Regist("pump", nullptr);
    for (const int closed : {0, 1, 2, 9999}) {
        const int copy = fcntl(closed, F_DUPFD, 10);
        close(closed);
        DTFault_Start();
        start(port);
        const int held[] = {DTSock_UDP_Create(nullptr, 0), CollectClient_Init(), network.connected};
        dup2(copy, closed);
        EXPECT_GT(file, 2);
        EXPECT_EQ(file_flags, FD_CLOEXEC);
        for (const int fd : held) {
            EXPECT_GT(fd, 2);
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        }
    }
}
