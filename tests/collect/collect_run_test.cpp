#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"
#include "support/store.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <setjmp.h>
#include <sys/socket.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<uint32_t> called; // with these arguments
CollectItem *pump;

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
    // What the callback of a lone collector, pump, sends.
    static std::string sent_by(CollectCallback put) {
        pump = Collect_New("pump", put, nullptr);
        CollectionServer server;
        EXPECT_EQ(collect(server.port()), 1);
        std::string all;
        for (const Message &message : server.messages())
            if (message.type == COLLECT_MESSAGE_DATA) all += message.payload;
        return all;
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
    pump = Collect_New("pump", put, nullptr);
    Collect_New("idle", nullptr, note);
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
    EXPECT_THAT(called, ElementsAre(2, 2));
    EXPECT_THAT(log_texts(),
                ElementsAre("14/11/16 18:44:43 [pump] begin...\n", "14/11/16 18:44:43 [pump] end\n",
                            "14/11/16 18:44:43 [a disk with a long ] begin...\n",
                            "14/11/16 18:44:43 [a disk with a long ] end\n"));
    EXPECT_THAT(platform.prints, IsEmpty());
    Collect_ShowLog();
    EXPECT_THAT(platform.prints, SizeIs(12));
    EXPECT_EQ(collect(next.port()), 1);
    EXPECT_EQ(next.messages()[1], (Message{1, 5, directory})); // the numbers go on
}

TEST_F(Run, ASelfTestNamesWhoseResultsFollow) {
    const auto put = [](uint32_t argument) {
        note(argument);
        Collect_PutString(pump, 1, "ok", 0);
    };
    pump = Collect_New("pump", note, put);
    Collect_New("idle", note, nullptr);
    CollectionServer server;
    EXPECT_EQ(selftest(server.port()), 1);
    const std::string results = text_frame(65535, 0, "pump") + text_frame(0, 1, "ok");
    EXPECT_THAT(server.messages(), ElementsAre(opening, Message{2, 1, results}, Message{2, 2, ""}));
    EXPECT_THAT(called, ElementsAre(0));
    EXPECT_THAT(log_texts(), ElementsAre("14/11/16 18:44:43 [pump] selftest begin...\n",
                                         "14/11/16 18:44:43 [pump] selftest end\n"));
}

TEST_F(Run, LongValuesArriveWholeAndNoneThatIsMissing) {
    static std::string bytes;
    for (int i = 0; i < 3000; ++i) bytes += static_cast<char>('a' + i % 26);
    const std::string sent = sent_by([](uint32_t) {
        Collect_PutString(pump, 1, bytes.c_str(), 0);
        Collect_PutStruct(pump, 2, bytes.data(), 100);
        Collect_PutString(pump, 3, nullptr, 0);
        Collect_PutString(pump, 3, "abc", -1);
        Collect_PutStruct(pump, 3, "abc", 0);
        Collect_PutStruct(pump, 3, nullptr, 1);
    });
    EXPECT_EQ(sent, text_frame(0, 1, bytes.substr(0, 1009), '\x03') +
                        text_frame(0, 1, bytes.substr(1009, 1009), '\x03') +
                        text_frame(0, 1, bytes.substr(2018)) +
                        text_frame(0, 2, bytes.substr(0, 12), '\x04') +
                        text_frame(0, 2, bytes.substr(12, 88), '\x84'));
}

TEST_F(Run, LogsArriveAsStampAndText) {
    static DTFault *fault = DTFault_Regist("valve", nullptr);
    const std::string sent = sent_by([](uint32_t) {
        Collect_PutRunLog(pump, 1, fault); // nothing logged yet
        DTFault_SetRunLog(fault, 1, 0, "opened");
        DTFault_SetRunLog(fault, 2, 0, "");
        DTFault_SetInitLog(fault, 3, 0, "made");
        Collect_PutRunLog(pump, 2, fault);
        Collect_PutInitLog(pump, 3, fault);
        Collect_PutRunLog(pump, 4, nullptr);
        Collect_PutRunLog(nullptr, 4, fault);
    });
    const std::string stamp = "11/16 18:44:43 ";
    EXPECT_EQ(sent, text_frame(0, 2, stamp) + text_frame(0, 2, "opened") + text_frame(0, 2, stamp) +
                        text_frame(0, 2, "") + text_frame(0, 3, stamp) + text_frame(0, 3, "made"));
}

TEST_F(Run, StopsAtTheFirstMessageThatFails) {
    for (const char *name : {"one", "two", "three"}) Collect_New(name, note, note);
    for (const auto run : {collect, selftest}) {
        EXPECT_EQ(run(1), 0);
        EXPECT_EQ(log_texts().back(), "connect to server fail.");
        EXPECT_THAT(called, IsEmpty());
        for (int failing = 1; failing <= 3; ++failing) { // of the messages
            CollectionServer server([left = failing](int fd) mutable {
                return --left > 0 ? send(fd, "ok", 2, 0) == 2 : reset(fd);
            });
            EXPECT_EQ(run(server.port()), 0);
            const int reached = run == collect ? failing - 2 : failing - 1;
            EXPECT_THAT(called, SizeIs(std::max(reached, run == collect ? 0 : 1)));
            EXPECT_EQ(log_texts().back(), "flush to server fail.");
            called.clear();
        }
        CollectionServer server;
        EXPECT_EQ(run(server.port()), 1); // connects anew
        EXPECT_EQ(server.messages().front(), opening);
        EXPECT_THAT(called, SizeIs(3));
        EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 3 * (sizeof(CollectItem) + 4));
        called.clear();
    }
}

TEST_F(Run, ACollectorMayReleaseItself) {
    sent_by([](uint32_t) { Collect_Release(pump); });
    EXPECT_EQ(log_texts().back(), "14/11/16 18:44:43 [pump] end\n");
    EXPECT_EQ(g_collect_param.count, 0);
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
    EXPECT_EQ(g_collect_param.count, 17);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 17 * each);
    for (int32_t i = 3; i < 17; ++i) {
        EXPECT_EQ(g_collect_param.items[i], items[i + 1]);
        EXPECT_EQ(items[i + 1]->index, i);
    }
}

TEST(Registry, IgnoresNullAndPutsOutsideARun) {
    CollectItem *item = Collect_New("x", nullptr, nullptr);
    for (CollectItem *any : {item, static_cast<CollectItem *>(nullptr)}) {
        Collect_PutInt(any, 1, 2);
        Collect_PutLong(any, 1, 2);
        Collect_PutString(any, 1, "text", 0);
        Collect_PutStruct(any, 1, "text", 4);
        Collect_BeginSection(any, 5);
    }
    EXPECT_EQ(item->section, 5u);
    Collect_ShowLog();
    CollectClient_SetType(1);
    CollectClient_AppendString("x");
    EXPECT_EQ(CollectClient_Flush(0), 0);
    CollectClient_End();
    EXPECT_THAT(platform.prints, IsEmpty());
    EXPECT_EQ(platform.allocations, 1u);
}

// A socket that fails at once every time would otherwise keep the processor busy for good.
TEST(CommandLoop, RestsAfterEachFailedReceive) {
    static jmp_buf after_the_loop;
    static std::vector<uint32_t> rests;
    network.failing["recvfrom"] = ENOTSOCK;
    fake_clock.sleeping = [](uint32_t microseconds) {
        rests.push_back(microseconds);
        if (rests.size() == 3) longjmp(after_the_loop, 1);
    };
    testing::internal::CaptureStdout();
    if (setjmp(after_the_loop) == 0) Collect_Init(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "size=-1\nsize=-1\nsize=-1\n");
    EXPECT_THAT(rests, ElementsAre(100000, 100000, 100000));
}
