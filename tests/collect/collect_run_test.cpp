#include "support/clock.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"
#include "support/store.h"

#include <dt/collect.h>
#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <setjmp.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<uint32_t> called;
CollectItem *pump, *disk;

std::string word(uint32_t value) { return std::string(reinterpret_cast<char *>(&value), 4); }

std::string half(size_t value) { return {static_cast<char>(value), static_cast<char>(value >> 8)}; }

std::string text_frame(uint32_t index, uint32_t section, uint32_t key, const std::string &text) {
    return '\x83' + word(index) + word(section) + word(key) + half(text.size()) + text;
}

std::string int_frame(uint32_t index, uint32_t section, uint32_t key, uint32_t value) {
    return '\x81' + word(index) + word(section) + word(key) + word(value);
}

std::vector<std::string> log_texts() {
    std::vector<std::string> texts;
    const Records records = records_of(g_collect_param.logger->info);
    for (size_t i = 1; i < records.size(); i += 2) texts.push_back(records[i].second);
    return texts;
}

class Run : public testing::Test {
protected:
    void SetUp() override {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
        g_collect_param.logger = DTLogger_New(255);
    }

    int32_t collect(const CollectionServer &server, uint32_t command = 1, int32_t sequence = 0) {
        return Collect_Start("127.0.0.1", server.port(), command, sequence, 0x12, 0x34);
    }
    int32_t selftest(const CollectionServer &server, int32_t sequence = 0) {
        return Collect_SelfTest("127.0.0.1", server.port(), sequence, 0x12, 0x34);
    }
};

const Message opening = {0, 7, std::string("\x12\x34\0\0", 4)};

} // namespace

TEST_F(Run, SendsDirectoryValuesAndAnEmptyEnd) {
    pump = Collect_New(
        "pump",
        [](uint32_t command) {
            called.push_back(command);
            Collect_PutInt(pump, 5, 6);
            Collect_BeginSection(pump, 9);
            Collect_PutInt(pump, 7, 8);
            Collect_EndSection(pump);
            Collect_PutLong(pump, 1, 1);
        },
        nullptr);
    Collect_New("idle", nullptr, [](uint32_t) {});
    disk = Collect_New(
        "a disk with a long name", [](uint32_t) {}, nullptr);
    CollectionServer server;
    EXPECT_EQ(collect(server, 2, 7), 1);
    EXPECT_THAT(server.messages(),
                ElementsAre(opening,
                            Message{1, 1,
                                    word(0) + half(4) + "pump" + word(1) + half(4) + "idle" +
                                        word(2) + half(19) + "a disk with a long "},
                            Message{2, 2,
                                    int_frame(0, 0, 5, 6) + int_frame(0, 9, 7, 8) + "\x82" +
                                        word(0) + word(0) + word(1) + word(1) + word(0)},
                            Message{2, 3, ""}, Message{2, 4, ""}));
    EXPECT_THAT(called, ElementsAre(2));
    EXPECT_THAT(log_texts(),
                ElementsAre("14/11/16 18:44:43 [pump] begin...\n", "14/11/16 18:44:43 [pump] end\n",
                            "14/11/16 18:44:43 [a disk with a long ] begin...\n",
                            "14/11/16 18:44:43 [a disk with a long ] end\n"));
    EXPECT_THAT(platform.prints, IsEmpty());
    Collect_ShowLog();
    EXPECT_THAT(platform.prints,
                ElementsAre("2014/11/16 18:44:43\n", "14/11/16 18:44:43 [pump] begin...\n", "\n",
                            "2014/11/16 18:44:43\n", "14/11/16 18:44:43 [pump] end\n", "\n",
                            testing::_, testing::_, "\n", testing::_, testing::_, "\n"));
}

TEST_F(Run, WithoutCollectorsStillSaysSo) {
    CollectionServer server;
    EXPECT_EQ(collect(server), 1);
    EXPECT_THAT(server.messages(),
                ElementsAre(Message{0, 1, opening.payload}, Message{1, 2, ""}, Message{2, 3, ""}));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

TEST_F(Run, ASelfTestNamesWhoseResultsFollow) {
    pump = Collect_New(
        "pump", [](uint32_t) {},
        [](uint32_t argument) {
            called.push_back(argument);
            Collect_PutString(pump, 1, "ok", 0);
        });
    Collect_New(
        "idle", [](uint32_t) {}, nullptr);
    CollectionServer server;
    EXPECT_EQ(selftest(server, 7), 1);
    EXPECT_THAT(
        server.messages(),
        ElementsAre(opening,
                    Message{2, 1, text_frame(65535, 0, 0, "pump") + text_frame(0, 0, 1, "ok")},
                    Message{2, 2, ""}));
    EXPECT_THAT(called, ElementsAre(0));
    EXPECT_THAT(log_texts(), ElementsAre("14/11/16 18:44:43 [pump] selftest begin...\n",
                                         "14/11/16 18:44:43 [pump] selftest end\n"));
}

TEST_F(Run, LongValuesArriveWhole) {
    static const std::string text(3000, 't'), bytes(1500, '\0');
    pump = Collect_New(
        "pump",
        [](uint32_t) {
            Collect_PutString(pump, 1, text.c_str(), 0);
            Collect_PutStruct(pump, 2, bytes.data(), 1500);
            Collect_PutString(pump, 3, "", 0);
            Collect_PutString(pump, 4, "abc", 2);
            Collect_PutString(pump, 5, nullptr, 0);
            Collect_PutString(pump, 5, "abc", -1);
            Collect_PutStruct(pump, 5, "abc", 0);
            Collect_PutStruct(pump, 5, nullptr, 1);
        },
        nullptr);
    CollectionServer server;
    EXPECT_EQ(collect(server), 1);
    std::string all;
    for (const Message &message : server.messages())
        if (message.type == 2) all += message.payload;
    const auto part = [](char tag, uint32_t key, size_t size, char fill) {
        return tag + word(0) + word(0) + word(key) + half(size) + std::string(size, fill);
    };
    EXPECT_EQ(all, part('\x03', 1, 1009, 't') + part('\x03', 1, 1009, 't') +
                       part('\x83', 1, 982, 't') + part('\x04', 2, 12, 0) +
                       part('\x04', 2, 1009, 0) + part('\x84', 2, 479, 0) +
                       text_frame(0, 0, 3, "") + text_frame(0, 0, 4, "ab"));
}

TEST_F(Run, LogsArriveAsStampAndText) {
    static DTFault *fault;
    fault = DTFault_Regist("valve", nullptr);
    pump = Collect_New(
        "pump",
        [](uint32_t) {
            Collect_PutRunLog(pump, 1, fault); // nothing logged yet
            DTFault_SetRunLog(fault, 1, 0, "opened");
            DTFault_SetRunLog(fault, 2, 0, "");
            DTFault_SetInitLog(fault, 3, 0, "made");
            Collect_PutRunLog(pump, 2, fault);
            Collect_PutInitLog(pump, 3, fault);
            Collect_PutRunLog(pump, 4, nullptr);
            Collect_PutRunLog(nullptr, 4, fault);
        },
        nullptr);
    CollectionServer server;
    EXPECT_EQ(collect(server), 1);
    const std::string stamp = "11/16 18:44:43 ";
    EXPECT_EQ(server.messages()[2].payload,
              text_frame(0, 0, 2, stamp) + text_frame(0, 0, 2, "opened") +
                  text_frame(0, 0, 2, stamp) + text_frame(0, 0, 2, "") +
                  text_frame(0, 0, 3, stamp) + text_frame(0, 0, 3, "made"));
}

TEST_F(Run, StopsAtTheFirstMessageThatFails) {
    for (const auto &name : {"one", "two"})
        Collect_New(
            name, [](uint32_t command) { called.push_back(command); }, nullptr);
    EXPECT_EQ(Collect_Start("127.0.0.1", 1, 0, 0, 1, 2), 0);
    EXPECT_THAT(log_texts(), ElementsAre("connect to server fail."));
    {
        CollectionServer server(2); // opening and directory
        EXPECT_EQ(collect(server), 0);
        EXPECT_THAT(called, SizeIs(testing::AnyOf(1, 2))); // the closed end answers once
        EXPECT_EQ(log_texts().back(), "flush to server fail.");
    }
    called.clear();
    CollectionServer server;
    EXPECT_EQ(collect(server), 1); // connects anew
    EXPECT_THAT(called, SizeIs(2));
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 2 * (sizeof(CollectItem) + 4));
}

TEST_F(Run, ACollectorMayReleaseItselfAndOthers) {
    pump = Collect_New(
        "pump", [](uint32_t) { Collect_Release(pump); }, nullptr);
    disk = Collect_New(
        "disk", [](uint32_t command) { called.push_back(command); }, nullptr);
    CollectionServer server;
    EXPECT_EQ(collect(server, 0), 1);
    EXPECT_EQ(log_texts().back(), "14/11/16 18:44:43 [pump] end\n");
    EXPECT_EQ(g_collect_param.count, 1);
    EXPECT_EQ(disk->index, 0);
}

TEST(Registry, HoldsNineteenCollectors) {
    EXPECT_EQ(Collect_New(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(Collect_New("", nullptr, nullptr), nullptr);
    platform.fail_only(1);
    EXPECT_EQ(Collect_New("x", nullptr, nullptr), nullptr);
    CollectItem *items[19];
    for (int32_t i = 0; i < 19; ++i) {
        items[i] = Collect_New("1234567890123456789012345", nullptr, nullptr);
        ASSERT_NE(items[i], nullptr);
        EXPECT_EQ(items[i]->index, i);
        EXPECT_STREQ(items[i]->name, "1234567890123456789");
    }
    EXPECT_EQ(Collect_New("x", nullptr, nullptr), nullptr);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 19 * (sizeof(CollectItem) + 4));
}

TEST(Registry, CollectorsMoveUpWhenOneIsReleased) {
    CollectItem *items[3];
    for (auto &item : items) item = Collect_New("x", nullptr, nullptr);
    Collect_Release(items[0]);
    EXPECT_EQ(g_collect_param.count, 2);
    EXPECT_EQ(g_collect_param.items[0], items[1]);
    EXPECT_EQ(items[1]->index, 0);
    EXPECT_EQ(items[2]->index, 1);
    Collect_Release(items[0]); // again: not in the registry, never followed
    Collect_Release(nullptr);
    EXPECT_EQ(g_collect_param.count, 2);
    Collect_Release(items[2]);
    Collect_Release(items[1]);
    EXPECT_EQ(g_collect_param.count, 0);
    EXPECT_EQ(outstanding(COLLECT_OWNER_ID), 0u);
}

TEST(Registry, IgnoresNullAndPutsOutsideARun) {
    CollectItem *item = Collect_New("x", nullptr, nullptr);
    for (CollectItem *any : {item, static_cast<CollectItem *>(nullptr)}) {
        Collect_PutInt(any, 1, 2);
        Collect_PutLong(any, 1, 2);
        Collect_PutString(any, 1, "text", 0);
        Collect_PutStruct(any, 1, "text", 4);
        Collect_BeginSection(any, 5);
        Collect_EndSection(any);
    }
    EXPECT_EQ(item->section, 0u);
    Collect_ShowLog();
    EXPECT_THAT(platform.prints, IsEmpty());
}

// The real loop, on a thread of its own, told by real datagrams.
TEST(CommandLoop, ServesOneCommandAfterTheOther) {
    Collect_New(
        "pump", [](uint32_t command) { called.push_back(command); },
        [](uint32_t) { called.push_back(100); });
    std::thread([] { Collect_Init(0x3412); }).detach();
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(COLLECT_COMMAND_PORT);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(sender, reinterpret_cast<sockaddr *>(&to), sizeof to), 0);
    const auto command = [&](uint32_t number, uint32_t sequence, uint32_t port) {
        const std::string datagram = word(16) + word(number) + word(sequence) + word(port);
        for (int tries = 0; tries < 500; ++tries) { // until the loop is there
            if (send(sender, datagram.data(), 16, 0) == 16) return;
            usleep(10000);
        }
    };
    CollectionServer collecting, testing_itself;
    char byte;
    command(4, 0, 1);
    for (int tries = 0;
         tries < 500 && recv(sender, &byte, 1, MSG_DONTWAIT) < 0 && errno == ECONNREFUSED;
         ++tries) {
        usleep(10000);
        command(4, 0, 1);
    }
    command(1, UINT32_MAX, collecting.port()); // a negative number: ignored
    command(1, 7, 0x70000 + collecting.port());
    EXPECT_THAT(collecting.messages(),
                ElementsAre(opening, testing::_, Message{2, 2, ""}, Message{2, 3, ""}));
    command(3, 0, testing_itself.port());
    EXPECT_THAT(testing_itself.messages(), SizeIs(3));
    EXPECT_THAT(called, ElementsAre(1, 100));
    close(sender);
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

TEST(CommandLoop, EndsAtOnceWithoutItsPort) {
    const int32_t taken = CollectClient_Init();
    EXPECT_EQ(Collect_Init(0), -1);
    EXPECT_EQ(g_collect_param.logger, nullptr);
    close(taken);
}
