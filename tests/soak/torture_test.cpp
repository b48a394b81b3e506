// The collection client among servers that do what they like, while signals interrupt every call.
// What a server has read is how the run begins, the run ends as it must, and the next one is whole.
// With DT_ROUNDS set: so many rounds, each with other signals and stages, and a table of them.
#include "support/platform.h"
#include "support/server.h"

#include <dt/collect.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using Answer = CollectionServer::Answer;

constexpr int32_t soon = 30, plenty = 100000; // milliseconds
constexpr int32_t may_lose_the_end = 2;       // what is under way when unread bytes reset all

std::minstd_rand generator(8117);
volatile sig_atomic_t signals;
std::vector<std::string> whole; // what a good server reads
unsigned stage;                 // messages until a server shows its nature
CollectItem *item;
const std::string text(15000, 't');

unsigned upto(unsigned most) { return static_cast<unsigned>(generator()) % (most + 1); }

void put_values(uint32_t) {
    for (uint32_t key = 0; key < 99; ++key) Collect_PutInt(item, key, key);
    Collect_PutString(item, 100, text.c_str(), 0);
    Collect_PutStruct(item, 101, text.data(), 7000);
}

bool hears(int) { return true; }

bool closes(int) { return false; }

bool says(int fd, size_t count) {
    return send(fd, text.data(), count, MSG_NOSIGNAL | MSG_DONTWAIT) != 0;
}

bool acknowledges(int fd) { return says(fd, 2); }

bool acknowledges_all(int fd) { return says(fd, 16 * whole.size()); }

// At some message, and until then the server is a good one.
Answer at_a_stage(const Answer &answer) {
    return
        [=, left = stage](int fd) mutable { return left-- != 0 ? acknowledges(fd) : answer(fd); };
}

bool closes_within_a_message(int fd) {
    char part[6];
    return acknowledges(fd) && recv(fd, part, sizeof part, MSG_WAITALL) < 0;
}

bool is_late(int fd) { return usleep(3000 * soon) == 0 && acknowledges(fd); }

bool trickles(int fd) {
    for (int i = 0; i < 3; ++i) says(fd, 1), usleep(300);
    return true;
}

bool closes_its_half(int fd) { return acknowledges(fd) && shutdown(fd, SHUT_WR) <= 0; }

bool is_urgent(int fd) { return send(fd, "!", 1, MSG_OOB | MSG_NOSIGNAL) == 1 && acknowledges(fd); }

// Acknowledges all in advance and reads when the device cannot go on.
bool is_lazy(int fd) { return acknowledges_all(fd) && usleep(20000) == 0; }

// Buffers that are full soon, so that a message is sent in parts.
void shrink_buffers() {
    for (const char *buffers : {"tcp_wmem", "tcp_rmem"})
        std::ofstream(std::string("/proc/sys/net/ipv4/") + buffers) << "4096 8000 8000";
}

struct Behaviour {
    const char *name;
    Answer greets, answers;
    int32_t result;
    int32_t patience = plenty; // of the device for an acknowledgement
    bool from_a_stage = false;
    unsigned runs = 0;
    size_t messages = 0;
} behaviours[] = {
    {"refuses", {}, {}, 0},
    {"closes at once", closes, hears, 0},
    {"resets at once", reset, hears, 0},
    {"is silent", {}, hears, 0, soon, true},
    {"is late", {}, is_late, 0, soon, true},
    {"closes", {}, closes, 0, plenty, true},
    {"closes within a message", {}, closes_within_a_message, 0, plenty, true},
    {"resets", {}, reset, 0, plenty, true},
    {"trickles", {}, trickles, 1},
    {"acknowledges wrongly", {}, [](int fd) { return says(fd, 1 + upto(15)); }, 1},
    {"talks without end", {}, [](int fd) { return says(fd, text.size()); }, may_lose_the_end},
    {"acknowledges unasked", acknowledges_all, hears, 1},
    {"reads late", is_lazy, hears, 1},
    {"closes its half", {}, closes_its_half, 1},
    {"sends urgent bytes", {}, is_urgent, 1},
};

int32_t run(bool selftest, uint16_t port) {
    return selftest ? Collect_SelfTest("127.0.0.1", port, 1, 2, 3)
                    : Collect_Start("127.0.0.1", port, 1, 1, 2, 3);
}

std::vector<std::string> good_run(bool selftest) {
    CollectionServer good;
    CollectClient_SetTimeout(0, plenty, plenty);
    EXPECT_EQ(run(selftest, good.port()), 1);
    return good.payloads();
}

void meet(Behaviour &one, bool selftest) {
    SCOPED_TRACE(one.name);
    stage = upto(20);
    SCOPED_TRACE(stage);
    const bool limited = one.patience == soon || upto(1) != 0;
    CollectClient_SetTimeout(limited ? plenty : 0, plenty, limited ? one.patience : 0);
    std::vector<std::string> read;
    if (!one.answers) {
        EXPECT_EQ(run(selftest, 1), one.result);
    } else {
        CollectionServer bad(one.from_a_stage ? at_a_stage(one.answers) : one.answers, one.greets);
        EXPECT_EQ(run(selftest, bad.port()), one.result != 0);
        read = bad.payloads();
    }
    EXPECT_LE(read.size(), whole.size());
    EXPECT_TRUE(one.result == may_lose_the_end || (read == whole) == one.result);
    EXPECT_TRUE(std::equal(read.begin(), read.end(), whole.begin()));
    EXPECT_EQ(good_run(selftest), whole);
    ++one.runs;
    one.messages += read.size();
}

} // namespace

TEST(Torture, EveryRunEndsAsItMustAndTheNextOneIsWhole) {
    const char *const rounds = getenv("DT_ROUNDS");
    shrink_buffers();
    item = Collect_New("pump", put_values, put_values);
    const uint32_t before = outstanding(COLLECT_OWNER_ID);
    const int descriptors = open_descriptors();
    struct sigaction action = {};
    action.sa_handler = [](int) { signals = signals + 1; };
    sigaction(SIGALRM, &action, nullptr);
    for (int round = 0; round < (rounds ? atoi(rounds) : 1) && !HasFailure(); ++round) {
        const itimerval every = {{0, 500 + 500 * (round % 10)}, {0, 500}};
        setitimer(ITIMER_REAL, &every, nullptr);
        const bool selftest = round % 2 != 0;
        whole = good_run(selftest);
        ASSERT_GT(whole.size(), 22u);
        for (Behaviour &one : behaviours) meet(one, selftest);
        EXPECT_EQ(outstanding(COLLECT_OWNER_ID), before);
        EXPECT_EQ(open_descriptors(), descriptors);
    }
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GT(signals, 0);
    if (!rounds) return;
    fflush(stdout);
    for (const Behaviour &one : behaviours)
        fprintf(stderr, "%-26s %5u runs %7zu messages\n", one.name, one.runs, one.messages);
    fprintf(stderr, "%d signals\n", static_cast<int>(signals));
}
