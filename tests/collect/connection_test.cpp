// Limits on what the collection client waits for, and calls of the system that fail or that signals
// interrupt.
#include "support/network.h"
#include "support/server.h"

#include <base/endpoint.h>
#include <dt/collect.h>
#include <gmock/gmock.h>

#include <chrono>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

using testing::SizeIs;

namespace {

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

// What work prints, whether it succeeds, and how long it takes at least. A limit that never ends it
// is the test's own time-out.
template <typename Work>
void expect(Work work, int32_t result, int milliseconds, const std::string &output) {
    using std::chrono::steady_clock;
    testing::internal::CaptureStdout();
    const auto begin = steady_clock::now();
    EXPECT_EQ(work(), result);
    const auto passed = steady_clock::now() - begin;
    EXPECT_GE(passed, std::chrono::milliseconds(milliseconds));
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), output);
}

int32_t start(uint16_t port) { return CollectClient_Start("127.0.0.1", port); }

int32_t flush() { return CollectClient_Flush(0); }

// Whoever connects now is left waiting.
void fill(uint16_t port) {
    const sockaddr_in address = dt::endpoint(htonl(INADDR_LOOPBACK), port);
    for (int i = 0; i < 4; ++i)
        connect(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0), dt::generic(&address),
                sizeof address);
}

} // namespace

TEST(Limits, ConnectingEndsInTimeWhateverTheSignals) {
    uint16_t port;
    listen_on_loopback(&port, 0);
    fill(port);
    const int before = open_descriptors();
    CollectClient_SetTimeout(80, 0, 0);
    const Signals signals;
    expect([=] { return start(port); }, 0, 80, "connect error.\n");
    EXPECT_GT(signals.count, 0);
    EXPECT_EQ(open_descriptors(), before);
}

// What follows fails at once: neither it nor a late answer can meet the wrong message.
TEST(Limits, ASilentServerDelaysARunOnce) {
    CollectionServer silent([](int) { return true; }), good;
    CollectClient_SetTimeout(60000, 60000, 80);
    ASSERT_EQ(start(silent.port()), 1);
    {
        const Signals signals;
        expect(flush, 0, 80, "recv error.\n");
        EXPECT_GT(signals.count, 0);
    }
    expect(flush, 0, 0, "send error.\n");
    EXPECT_THAT(silent.messages(), SizeIs(1)); // and the connection was closed
    ASSERT_EQ(start(good.port()), 1);
    CollectClient_End();
    EXPECT_THAT(good.messages(), SizeIs(1));
}

// With a limit on the connect alone the connection blocks again afterwards.
TEST(Limits, AreOffAtZeroAndBelowAndWaitForASlowServerWhenTheyAreLong) {
    const std::pair<int32_t, int32_t> limits[] = {
        {60000, 0}, {60000, 60000}, {60000, INT32_MAX}, {-1, 0}};
    for (const auto &[connecting, waiting] : limits) {
        CollectionServer slow([](int fd) {
            usleep(60000);
            return send(fd, "ok", 2, MSG_NOSIGNAL) == 2;
        });
        network.waits.clear();
        CollectClient_SetTimeout(connecting, INT32_MIN, waiting);
        ASSERT_EQ(start(slow.port()), 1);
        EXPECT_EQ(fcntl(network.connected, F_GETFL) & O_NONBLOCK, 0);
        const Signals signals;
        expect(flush, 1, 60, "");
        CollectClient_End();
        EXPECT_THAT(slow.messages(), SizeIs(2));
        EXPECT_EQ(network.waits.empty(), connecting < 0);
    }
}

TEST(Connection, AnyCallThatFailsIsAnErrorAndLosesNoDescriptor) {
    CollectClient_SetTimeout(60000, 0, 0);
    uint16_t port;
    listen_on_loopback(&port, 9);
    close(0); // a descriptor like any other
    const int before = open_descriptors();
    for (const char *address : {static_cast<const char *>(nullptr), "nowhere"})
        expect([=] { return CollectClient_Start(address, port); }, 0, 0, "connect error.\n");
    for (const char *call : {"socket", "connect", "poll", "SO_ERROR"}) {
        network.failing = {{call, ENOMEM}};
        expect([=] { return start(port); }, 0, 0, "connect error.\n");
        EXPECT_EQ(open_descriptors(), before) << call;
    }
    network.failing = {{"socket", EMFILE}};
    EXPECT_EQ(CollectClient_Init(), -1);
    network.failing = {{"connect", EINTR}}; // goes on by itself
    EXPECT_EQ(start(port), 1);
    CollectClient_Start(nullptr, 1); // closes it
    const int other = dup(1);        // takes its number
    CollectClient_Start(nullptr, 1);
    EXPECT_EQ(close(other), 0);
    EXPECT_EQ(open_descriptors(), before);
}
