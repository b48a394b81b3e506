#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"
#include "support/store.h"

#include <dt/collect.h>
#include <dt/foundation.h>
#include <gmock/gmock.h>

#include <errno.h>
#include <random>
#include <setjmp.h>
#include <sys/socket.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace internal = testing::internal;

namespace {

std::vector<uint32_t> called; // with these arguments
CollectItem *pump;
std::minstd_rand random_number(1);

uint32_t upto(uint32_t most) { return static_cast<uint32_t>(random_number() % (most + 1)); }

std::string text_frame(uint32_t index, uint32_t key, const std::string &text, char tag = '\x83') {
    return frame(tag, index, 0, key, counted(text));
}

std::vector<std::string> log_texts() {
    std::vector<std::string> texts;
    const Records records = records_of(g_collect_param.logger->info);
    for (size_t i = 1; i < records.size(); i += 2) texts.push_back(records[i].second);
    return texts;
}

void note(uint32_t argument) { called.push_back(argument); }

class Run : public RecordsTest {
protected:
    void SetUp() override { g_collect_param.logger = DTLogger_New(255); }

    static int32_t collect(uint16_t port) {
        return Collect_Start("127.0.0.1", port, 2, 7, 0x12, 0x34);
    }
    static int32_t selftest(uint16_t port) {
        return Collect_SelfTest("127.0.0.1", port, 7, 0x12, 0x34);
    }
    // What the callback of a lone collector, pump, sends as data.
    static std::vector<std::string> sent_by(CollectCallback put) {
        pump = Collect_New("pump", put, nullptr);
        CollectionServer server;
        EXPECT_EQ(collect(server.port()), 1);
        const std::vector<std::string> all = server.payloads();
        return {all.begin() + 2, all.end()};
    }
};

const Message opening = {0, 7, std::string("\x12\x34\0\0", 4)};

} // namespace

TEST_F(Run, SendsDirectoryValuesAndAnEmptyEnd) {
    const auto put = [](uint32_t command) {
        note(command);
        Collect_PutInt(pump, 5, 6);
        Collect_BeginSection(pump, 9);
        Collect_PutInt(pump, 7, 8);
        Collect_EndSection(pump);
        Collect_PutLong(pump, 1, 1);
    };
    const auto test = [](uint32_t argument) {
        note(argument);
        Collect_PutString(pump, 1, "ok", 0);
    };
    pump = Collect_New("pump", put, test);
    Collect_New("idle", nullptr, nullptr);
    Collect_New("a disk with a long name", note, nullptr);
    CollectionServer server, next;
    EXPECT_EQ(collect(server.port()), 1);
    const std::string directory = word(0) + counted("pump") + word(1) + counted("idle") + word(2) +
                                  counted("a disk with a long ");
    const std::string values = frame('\x81', 0, 0, 5, word(6)) + frame('\x81', 0, 9, 7, word(8)) +
                               frame('\x82', 0, 0, 1, word(1) + word(0));
    EXPECT_THAT(server.messages(),
                ElementsAre(opening, Message{1, 1, directory}, Message{2, 2, values},
                            Message{2, 3, ""}, Message{2, 4, ""}));
    EXPECT_EQ(selftest(next.port()), 1);
    const std::string results = text_frame(65535, 0, "pump") + text_frame(0, 1, "ok");
    EXPECT_THAT(next.messages(), ElementsAre(opening, Message{2, 5, results}, Message{2, 6, ""}));
    EXPECT_THAT(called, ElementsAre(2, 2, 0));
    EXPECT_THAT(log_texts(),
                ElementsAre("14/11/16 18:44:43 [pump] begin...\n", "14/11/16 18:44:43 [pump] end\n",
                            "14/11/16 18:44:43 [a disk with a long ] begin...\n",
                            "14/11/16 18:44:43 [a disk with a long ] end\n",
                            "14/11/16 18:44:43 [pump] selftest begin...\n",
                            "14/11/16 18:44:43 [pump] selftest end\n"));
    EXPECT_THAT(platform.prints, IsEmpty());
    Collect_ShowLog();
    EXPECT_THAT(platform.prints, SizeIs(18));
}

namespace {

std::vector<std::string> messages = {""}; // as they should be
DTFault *fault;

size_t make_room(size_t least) {
    if (1024 - messages.back().size() < least) messages.push_back("");
    return 1024 - messages.back().size();
}

void expect_number(size_t size, const std::string &number_frame) {
    make_room(size);
    messages.back() += number_frame;
}

void expect_pieces(char kind, uint32_t key, std::string bytes) {
    bool last;
    do {
        const std::string piece = bytes.substr(0, make_room(25) - 15);
        last = piece == bytes;
        bytes.erase(0, piece.size());
        messages.back() += text_frame(0, key, piece, static_cast<char>(last ? kind | 0x80 : kind));
    } while (!last);
}

void log_and_count(const std::string &line) {
    DTLogger_Write(g_collect_param.logger, 1, "the pump runs");
    DTFault_SetRunLog(fault, 2, 0, line.substr(0, 40).c_str());
    DTFault_SetCounter(fault, 1, 2);
    DTFault_SetValue(fault, 3, "raw", 3);
    DTInfo_AddInfo(g_DTFault_Info, 1, 2, "one", 3, "two", 3, "three", 5, 4);
}

void put_anything(uint32_t key) {
    const uint32_t room = static_cast<uint32_t>(1024 - messages.back().size());
    const uint32_t size = upto(1) && room > 60 ? room - 15 - upto(30) : upto(3000); // to its end
    const std::string bytes(upto(9) ? upto(40) : size, static_cast<char>('a' + key % 26));
    const int32_t length = static_cast<int32_t>(bytes.size());
    switch (upto(5)) {
    case 0:
        Collect_PutInt(pump, key, ~key);
        return expect_number(17, frame('\x81', 0, 0, key, word(~key)));
    case 1:
        Collect_PutLong(pump, key, uint64_t{~key} << 32 | key);
        return expect_number(21, frame('\x82', 0, 0, key, word(key) + word(~key)));
    case 2:
        Collect_PutString(pump, key, bytes.c_str(), upto(1) ? length : 0);
        return expect_pieces(3, key, bytes);
    case 3:
        Collect_PutStruct(pump, key, bytes.data(), length);
        return length != 0 ? expect_pieces(4, key, bytes) : void();
    case 4:
        Collect_PutRunLog(pump, key, fault);
        for (const auto &[level, line] : records_of(fault->run_logger->info))
            expect_pieces(3, key, line);
        return;
    default: // nothing
        log_and_count(bytes);
        Collect_PutInitLog(pump, key, fault); // nothing was logged there
        Collect_PutInitLog(pump, key, nullptr);
        Collect_PutString(pump, key, nullptr, 0);
        Collect_PutString(pump, key, "abc", -1);
        Collect_PutStruct(pump, key, nullptr, 1);
        Collect_PutStruct(pump, key, "abc", -1);
    }
}

} // namespace

// Of a log, stamps and texts.
TEST_F(Run, PutsEachValueWholeWhereThereIsRoomAndAllocatesNothing) {
    fault = DTFault_Regist("valve", nullptr);
    for (DTLogger *logger : {g_collect_param.logger, fault->run_logger})
        DTLogger_SetInfoSize(logger, 1024);
    g_DTFault_Info = DTInfo_New(1024);
    for (int i = 0; i < 100; ++i) log_and_count(""); // until the stores are full
    const std::vector<std::string> sent = sent_by([](uint32_t) {
        const unsigned before = platform.allocations;
        for (uint32_t key = 0; key < 20000; ++key) put_anything(key);
        EXPECT_EQ(platform.allocations, before);
    });
    messages.push_back("");
    EXPECT_TRUE(sent == messages);
}

namespace {

// Fills a message or two if it counts.
void put_outside_a_run() {
    internal::CaptureStdout();
    for (CollectItem *item : {g_collect_param.items[0], static_cast<CollectItem *>(nullptr)})
        for (int i = 0; i < 20; ++i) {
            Collect_PutInt(item, 1, 2);
            Collect_PutLong(item, 1, 2);
            Collect_PutString(item, 1, "text", 0);
            Collect_PutStruct(item, 1, "text", 4);
            Collect_PutRunLog(item, 1, fault);
        }
    EXPECT_EQ(internal::GetCapturedStdout(), "");
}

} // namespace

TEST_F(Run, StopsAtTheFirstMessageThatFailsAndTakesNoValuesAfterwards) {
    fault = DTFault_Regist("valve", nullptr);
    DTFault_SetRunLog(fault, 1, 0, "opened");
    for (const char *name : {"one", "two", "three"}) Collect_New(name, note, note);
    put_outside_a_run();
    const char *shared = DTString_SFormat(" ");
    static const char acknowledged[32] = {};
    const struct {
        int32_t (*run)(uint16_t port);
        size_t reached[4]; // collectors: no connection, or so many messages
    } rows[] = {{collect, {0, 0, 0, 1}}, {selftest, {0, 1, 1, 2}}};
    for (const auto &[run, reached] : rows) {
        uint32_t number = 0; // the last one used
        for (unsigned failing = 0; failing <= 3; ++failing) {
            CollectionServer server( // which acknowledges in advance, to the byte
                [left = failing](int fd) mutable { return --left > 0 || reset(fd); },
                [=](int fd) { return send(fd, acknowledged, (failing - 1) * 16, 0) >= 0; });
            EXPECT_EQ(run(failing ? server.port() : 1), 0);
            put_outside_a_run();
            EXPECT_THAT(called, SizeIs(reached[failing]));
            EXPECT_STREQ(shared, failing ? "flush to server fail." : "connect to server fail.");
            EXPECT_EQ(log_texts().back(), shared);
            if (failing) number = server.messages().back().sequence;
            called.clear();
        }
        CollectionServer server;
        EXPECT_EQ(run(server.port()), 1); // connects anew
        EXPECT_EQ(server.messages()[0], opening);
        EXPECT_EQ(server.messages()[1].sequence, number + 1);
        EXPECT_THAT(called, SizeIs(3));
        called.clear();
    }
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 3 * (sizeof(CollectItem) + 4));
}

// The one behind it moves up, is left out, and sends under its new number.
TEST_F(Run, ACollectorMayReleaseItself) {
    const std::vector<std::string> sent = sent_by([](uint32_t) {
        CollectItem *behind = Collect_New("behind", note, nullptr);
        Collect_Release(std::exchange(pump, nullptr));
        Collect_PutInt(behind, 1, 2);
    });
    EXPECT_EQ(sent[0], frame('\x81', 0, 0, 1, word(2)));
    EXPECT_EQ(log_texts().back(), "14/11/16 18:44:43 [pump] end\n");
    EXPECT_THAT(called, IsEmpty());
}

TEST(Registry, HoldsNineteenCollectorsThatMoveUpWhenOneIsReleased) {
    EXPECT_EQ(Collect_New(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(Collect_New("", nullptr, nullptr), nullptr);
    CollectItem *items[19];
    for (int32_t i = 0; i < 19; ++i) {
        items[i] = Collect_New("1234567890123456789012345", nullptr, nullptr);
        ASSERT_NE(items[i], nullptr);
        EXPECT_EQ(items[i]->index, i);
        EXPECT_STREQ(items[i]->name, "1234567890123456789");
    }
    EXPECT_EQ(Collect_New("x", nullptr, nullptr), nullptr);
    const uint32_t each = sizeof(CollectItem) + 4;
    for (CollectItem *gone : {items[3], items[3], items[18]}) Collect_Release(gone); // one twice
    Collect_Release(nullptr);
    items[17]->index = 17; // out of the registry, by its own account
    Collect_Release(items[17]);
    items[17]->index = 16;
    EXPECT_EQ(g_collect_param.count, 17);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 17 * each);
    for (int32_t i = 3; i < 17; ++i) {
        EXPECT_EQ(g_collect_param.items[i], items[i + 1]);
        EXPECT_EQ(items[i + 1]->index, i);
    }
}

// The loop itself, until a third receive has failed: a socket that fails at once every time would
// otherwise keep the processor busy for good.
TEST(CommandLoop, ServesCommandsAmongNoiseAndRestsAfterEachFailedReceive) {
    static jmp_buf after_the_loop;
    static std::vector<uint32_t> rests;
    fake_clock.sleeping = [](uint32_t microseconds) {
        rests.push_back(microseconds);
        if (rests.size() == 3) longjmp(after_the_loop, 1);
    };
    network.failing["bind"] = EADDRINUSE;
    const int before = open_descriptors();
    EXPECT_EQ(Collect_Init(0) + CollectClient_Init(), -2);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(g_collect_param.logger, nullptr);
    network = {};
    const auto put = [](uint32_t argument) { Collect_PutInt(pump, argument, argument); };
    pump = Collect_New("pump", put, put);
    static CollectionServer collected, tested;
    const auto command = [](uint32_t number, uint32_t sequence, uint32_t port) {
        const std::string bytes = word(16) + word(number) + word(sequence) + word(port);
        network.replies.push_back({"127.0.0.1", 1, bytes});
    };
    network.simulated = true;
    for (int i = 0; i < 20000; ++i) {
        std::string noise(upto(40), '\0');
        for (char &byte : noise) byte = static_cast<char>(upto(255));
        network.replies.push_back({"127.0.0.1", 1, noise});
        if (i == 5000) command(2, 7, 0x70000u + collected.port());
        if (i == 6000) command(2, UINT32_MAX, tested.port()); // a negative number
        if (i == 7000) command(1, 1, 1);                      // nobody is there
        if (i == 8000) command(3, 0, tested.port());
    }
    internal::CaptureStdout();
    if (setjmp(after_the_loop) == 0) Collect_Init(0x3412);
    const std::string output = internal::GetCapturedStdout();
    EXPECT_TRUE(output.ends_with("\nsize=-1\nsize=-1\nsize=-1\n"));
    EXPECT_THAT(rests, ElementsAre(100000, 100000, 100000));
    EXPECT_NE(g_collect_param.logger, nullptr);
    EXPECT_EQ(collected.messages()[0], opening);
    EXPECT_EQ(collected.messages()[2].payload, frame('\x81', 0, 0, 2, word(2)));
    ASSERT_EQ(tested.messages().size(), 3u);
    EXPECT_TRUE(tested.messages()[1].payload.ends_with(frame('\x81', 0, 0, 0, word(0))));
}
