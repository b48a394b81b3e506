// Limits on what the collection client waits for, and calls of the system that fail or that signals
// interrupt.
#include "support/network.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <chrono>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

using testing::IsEmpty;
using testing::SizeIs;

namespace {

// As long as it lasts, a signal every few milliseconds interrupts whatever waits.
struct Signals {
    Signals() {
        struct sigaction action = {};
        action.sa_handler = [](int) { count = count + 1; };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Signals() {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
    }
    static inline volatile sig_atomic_t count;
};

int result;

// What work prints, its result, and how long it took: at least, and not much more.
template <typename Work> std::string in_time(int milliseconds, Work work) {
    using std::chrono::steady_clock;
    testing::internal::CaptureStdout();
    const auto begin = steady_clock::now();
    result = work();
    const auto passed = steady_clock::now() - begin;
    EXPECT_GE(passed, std::chrono::milliseconds(milliseconds));
    EXPECT_LT(passed, std::chrono::milliseconds(milliseconds + 1000));
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

int start(uint16_t port) { return CollectClient_Start("127.0.0.1", port); }

int flush() { return CollectClient_Flush(0); }

// Whoever connects now is left waiting.
std::vector<int> fill(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::vector<int> waiting(4);
    for (int &fd : waiting) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    }
    return waiting;
}

bool answer_late(int fd) {
    usleep(60000);
    return send(fd, "ok", 2, MSG_NOSIGNAL) == 2;
}

bool never_answer(int) { return true; }

} // namespace

TEST(Limits, AreOffAtFirstAndAtZeroAndBelow) {
    CollectionServer first, second;
    ASSERT_EQ(start(first.port()), 1);
    EXPECT_EQ(flush(), 1);
    CollectClient_SetTimeout(1, 1, 1);
    CollectClient_SetTimeout(0, -1, INT32_MIN);
    ASSERT_EQ(start(second.port()), 1);
    EXPECT_EQ(flush(), 1);
    CollectClient_End();
    EXPECT_THAT(network.waits, IsEmpty());
}

TEST(Limits, ConnectingEndsInTimeWhateverTheSignals) {
    uint16_t port;
    const int listener = listen_on_loopback(&port, 0);
    std::vector<int> others = fill(port);
    const int before = lowest_free_descriptor();
    CollectClient_SetTimeout(80, 0, 0);
    const Signals signals;
    EXPECT_EQ(in_time(80, [=] { return start(port); }), "connect error.\n");
    EXPECT_EQ(result, 0);
    EXPECT_GT(signals.count, 5);
    EXPECT_EQ(lowest_free_descriptor(), before);
    others.push_back(listener);
    for (const int fd : others) close(fd);
}

// What follows fails at once: neither it nor a late answer can meet the wrong message.
TEST(Limits, ASilentServerDelaysARunOnce) {
    CollectionServer silent(never_answer), good;
    CollectClient_SetTimeout(5000, 5000, 80);
    ASSERT_EQ(start(silent.port()), 1);
    {
        const Signals signals;
        EXPECT_EQ(in_time(80, flush), "recv error.\n");
        EXPECT_EQ(result, 0);
        EXPECT_GT(signals.count, 5);
    }
    EXPECT_EQ(in_time(0, flush), "send error.\n");
    EXPECT_EQ(fcntl(network.connected, F_GETFD), -1);
    EXPECT_THAT(silent.messages(), SizeIs(1));
    ASSERT_EQ(start(good.port()), 1);
    EXPECT_EQ(flush(), 1);
    CollectClient_End();
    EXPECT_THAT(good.messages(), SizeIs(2));
}

// With a limit on the connect alone the connection blocks again afterwards.
TEST(Limits, LongOnesAndNoneWaitForASlowServer) {
    for (const int32_t limit : {0, 2000, INT32_MAX}) {
        CollectionServer slow(answer_late);
        CollectClient_SetTimeout(INT32_MAX, 0, limit);
        ASSERT_EQ(start(slow.port()), 1);
        EXPECT_EQ(fcntl(network.connected, F_GETFL) & O_NONBLOCK, 0);
        const Signals signals;
        EXPECT_EQ(in_time(60, flush), "");
        EXPECT_EQ(result, 1);
        CollectClient_End();
        EXPECT_THAT(slow.messages(), SizeIs(2));
    }
}

TEST(Connection, AnyCallThatFailsIsAnErrorAndLosesNoDescriptor) {
    CollectClient_SetTimeout(1000, 0, 0);
    const int before = lowest_free_descriptor();
    for (const char *call : {"socket", "ioctl", "connect", "poll", "getsockopt"}) {
        uint16_t port;
        const int listener = listen_on_loopback(&port, 1);
        network.failing[call] = ENOMEM;
        EXPECT_EQ(in_time(0, [=] { return start(port); }), "connect error.\n") << call;
        EXPECT_EQ(result, 0) << call;
        network.failing.clear();
        close(listener);
        EXPECT_EQ(lowest_free_descriptor(), before) << call;
    }
    network.failing["socket"] = EMFILE;
    EXPECT_EQ(CollectClient_Init(), -1);
    network.failing.clear();
    {
        CollectionServer server;
        EXPECT_EQ(start(server.port()), 1);
        CollectClient_End();
    }
    EXPECT_EQ(lowest_free_descriptor(), before);
}
