#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <dlfcn.h>
#include <errno.h>
#include <optional>
#include <random>
#include <set>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
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

std::optional<timeval> arrived; // every datagram, unless the system knows better
unsigned asked;                 // when

} // namespace

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *const result = va_arg(arguments, void *);
    va_end(arguments);
    const auto real = reinterpret_cast<decltype(&ioctl)>(dlsym(RTLD_NEXT, "ioctl"));
    if (!arrived) return real(file, request, result);
    ++asked;
    memcpy(result, &*arrived, sizeof *arrived);
    return 0;
}

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

TEST(Connection, SendsTheRestOfAMessageThatIsCutShortWithinALimitAlone) {
    CollectionServer server;
    ASSERT_TRUE(start(server));
    network.longest_send = 7;
    CollectClient_AppendInt(3);
    CollectClient_SetTimeout(0, 1000000, 0);
    EXPECT_EQ(flush(), 1);
    CollectClient_SetTimeout(0, 0, 50);
    EXPECT_EQ(printed(flush), "recv error.\n"); // the server waits for the rest
    CollectClient_Start(nullptr, 1);            // closes the connection in any case
    EXPECT_THAT(server.messages(), ElementsAre(Message{0, 1, word(3)}));
}

struct CommandSocket : testing::Test {
    // What the device makes of what is in the socket; nothing is stored for an invalid datagram.
    int32_t receive(int32_t socket, const std::string &output) {
        command_ = port_ = 99;
        strcpy(address_, "unset");
        internal::CaptureStdout();
        const int32_t sequence = CollectClient_WaitFor(socket, 1, 2, &command_, address_, &port_);
        EXPECT_EQ(internal::GetCapturedStdout(), output);
        return sequence;
    }

    uint32_t command_, port_;
    char address_[16];
};

// A short datagram is valid with zeros behind it, and one that is too long is cut.
TEST_F(CommandSocket, AcceptsWhatHasItsLengthAKnownCommandAndAnAllowedSender) {
    for (const char *none : {"", "localhost", "127.1", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5"})
        EXPECT_EQ(CollectClient_Allow(none), 0) << none;
    std::minstd_rand random(1);
    const auto upto = [&](uint32_t most) { return static_cast<uint32_t>(random() % (most + 1)); };
    std::set<std::string> allowed; // none: everybody
    network.simulated = true;
    for (int i = 0; i < 3000; ++i) {
        const std::string sender = "10.0.0." + std::to_string(upto(19));
        if (upto(9) == 0) {
            const bool fits = allowed.size() < COLLECT_MAX_ALLOWED || allowed.contains(sender);
            EXPECT_EQ(CollectClient_Allow(sender.c_str()), fits);
            if (fits) allowed.insert(sender);
        }
        if (upto(299) == 0 || i == 500) allowed.clear(), CollectClient_Allow(nullptr);
        const uint32_t size = upto(20), seen = std::min(size, 16u);
        uint32_t sent[5] = {upto(3) ? seen : upto(20), upto(4), upto(UINT32_MAX - 1), upto(9999)};
        network.replies = {{sender, 1, std::string(reinterpret_cast<char *>(sent), size)}};
        memset(reinterpret_cast<char *>(sent) + seen, 0, sizeof sent - seen);
        const bool valid =
            sent[0] == seen && sent[1] <= 3 && (allowed.empty() || allowed.contains(sender));
        EXPECT_EQ(receive(0, "size=" + std::to_string(seen) + "\n"),
                  valid ? static_cast<int32_t>(sent[2]) : -1);
        EXPECT_EQ(command_, valid ? sent[1] : 99);
        EXPECT_EQ(port_, valid ? sent[3] : 99);
        EXPECT_EQ(address_, valid ? sender : "unset");
    }
    EXPECT_EQ(CollectClient_WaitFor(0, 1, 2, nullptr, address_, &port_), -1);
}

TEST_F(CommandSocket, DropsWhatHasWaitedTooLongByBothClocksOnRequest) {
    uint16_t port;
    const int socket = bind_to_loopback(SOCK_DGRAM, &port), sender = sender_to(port);
    const std::string valid = word(16) + word(2) + word(7) + word(5000);
    const auto received = [&](int count, const std::string &output) {
        for (int i = 0; i < count; ++i) send(sender, valid.data(), valid.size(), 0);
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
    CollectClient_SetMaxAge(0);
    EXPECT_EQ(received(1, "size=16\n"), 7);
}

TEST_F(CommandSocket, AsksForAgesOnRequestAloneAndKnowsThemToTheMillisecond) {
    network.simulated = true;
    arrived = {100, 900000};
    fake_clock.since_boot = 1000000;
    EXPECT_GE(CollectClient_Init(), 0);
    const auto received = [&](int64_t now, int64_t since_boot) {
        network.replies = {{"10.0.0.1", 1, word(16) + word(2) + word(7) + word(5000)}};
        fake_clock.microseconds = now;
        fake_clock.since_boot = since_boot;
        return receive(0, "size=16\n");
    };
    EXPECT_EQ(received(200000000, 900000000), 7);
    EXPECT_EQ(asked, 0u);
    CollectClient_SetMaxAge(1500);
    fake_clock.since_boot = 1000000;
    EXPECT_GE(CollectClient_Init(), 0);
    EXPECT_EQ(asked, 1u);
    EXPECT_EQ(received(102400000, 2501000), 7);
    EXPECT_EQ(received(102401000, 2500999), 7);
    EXPECT_EQ(received(1000000, 2501000), 7); // set back
    EXPECT_EQ(received(102401000, 2501000), -1);
    EXPECT_EQ(receive(0, "size=-1\n"), -1); // from now on there was nothing before
    EXPECT_EQ(received(102401000, 2501000), 7);
}
