#include "support/clock.h"
#include "support/platform.h"
#include "support/store.h"

#include <dt/fault.h>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

std::string bytes(std::initializer_list<int> values) { return {values.begin(), values.end()}; }

class FaultRegistry : public testing::Test {
protected:
    void SetUp() override {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
    }
};

} // namespace

TEST_F(FaultRegistry, NumbersFaultsInTheirOrder) {
    DTFault *first = DTFault_Regist("pump", nullptr);
    DTFault *second = DTFault_Regist("pump", nullptr);
    DTFault *third = DTFault_Regist("a name of 22 characters and more", nullptr);
    EXPECT_EQ(first->index + 10 * second->index + 100 * third->index, 210);
    EXPECT_STREQ(third->name, "a name of 22 character");
    EXPECT_EQ(DTList_Length(g_DTFault_List), 3);
    EXPECT_EQ(DTList_Get(g_DTFault_List, 1), reinterpret_cast<uintptr_t>(second));
    EXPECT_EQ(DTFault_SetInfo(first, 7), 0u);
    EXPECT_EQ(first->info, 7u);
}

TEST_F(FaultRegistry, RefusesTheFaultThatCouldNotBeToldApart) {
    for (int i = 0; i < 256; ++i) EXPECT_NE(DTFault_Regist("f", nullptr), nullptr);
    const unsigned blocks = platform.blocks;
    EXPECT_EQ(DTFault_Regist("f", nullptr), nullptr);
    EXPECT_EQ(DTFault_Regist(nullptr, nullptr), nullptr);
    EXPECT_EQ(platform.blocks, blocks);
    EXPECT_EQ(DTList_Length(g_DTFault_List), 256);
}

TEST_F(FaultRegistry, StoresEachKindUnderItsKey) {
    DTFault_Regist("other", nullptr);
    DTFault *fault = DTFault_Regist("pump", nullptr);
    EXPECT_EQ(g_DTFault_Info, nullptr);
    EXPECT_EQ(DTFault_SetRegist(fault, 1, 0x01020304), 0u);
    DTFault_SetRegist64(fault, 2, 0x0102030405060708);
    DTFault_SetRegistEx(fault, 9, "abc", 3);
    DTFault_SetCounter(fault, 7, 100);
    DTFault_SetCounter(fault, 7, 120);
    DTFault_SetCounter64(fault, 3, 4294967298);
    DTFault_SetCounterEx(fault, 9, nullptr, 0);
    DTFault_SetValue(fault, 1, "xy", 2);
    EXPECT_EQ(g_DTFault_Info->max_size, 10485760u);
    EXPECT_THAT(records_of(g_DTFault_Info),
                ElementsAre(Pair(bytes({0, 1}), bytes({1, 0, 0, 0, 4, 3, 2, 1})),
                            Pair(bytes({1, 1}), bytes({2, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1})),
                            Pair(bytes({2, 1}), bytes({9, 0, 0, 0, 3, 0, 0, 0}) + "abc"),
                            Pair(bytes({3, 1}), bytes({7, 0, 0, 0, 100, 0, 0, 0})),
                            Pair(bytes({3, 1}), bytes({7, 0, 0, 0, 120, 0, 0, 0})),
                            Pair(bytes({4, 1}), bytes({3, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0})),
                            Pair(bytes({5, 1}), bytes({9, 0, 0, 0, 0, 0, 0, 0})),
                            Pair(bytes({6, 1}), bytes({1, 0, 0, 0, 2, 0, 0, 0}) + "xy")));
}

TEST_F(FaultRegistry, RefusesDataBeyondARecord) {
    DTFault *fault = DTFault_Regist("pump", nullptr);
    const std::string data(65536 + 8, 'd');
    for (const uint32_t length : {293u, 65536u, 65536u + 8, UINT32_MAX}) {
        DTFault_SetRegistEx(fault, 1, data.data(), length);
        DTFault_SetCounterEx(fault, 1, data.data(), length);
    }
    for (const uint32_t length : {65528u, 65536u, UINT32_MAX})
        DTFault_SetValue(fault, 1, data.data(), length);
    EXPECT_THAT(records_of(g_DTFault_Info), IsEmpty());
    DTFault_SetRegistEx(fault, 1, data.data(), 292);
    DTFault_SetCounterEx(fault, 1, data.data(), 292);
    DTFault_SetValue(fault, 1, data.data(), 65527);
    const Records held = records_of(g_DTFault_Info);
    ASSERT_EQ(held.size(), 3u);
    EXPECT_EQ(held[1].second.size(), 300u);
    EXPECT_EQ(held[2].second.size(), 65535u);
}

TEST_F(FaultRegistry, KeepsTwoLogsApart) {
    DTFault *fault = DTFault_Regist("pump", nullptr);
    DTFault_SetInitLog(fault, 2, 0, "started");
    DTFault_SetRunLog(fault, 0, 0, "runs");
    EXPECT_EQ(platform.take_console(), "runs\n");
    EXPECT_THAT(records_of(fault->init_logger->info),
                ElementsAre(Pair("w", "11/16 18:44:43 "), Pair("w", "started")));
    DTFault_ShowRunLog(fault);
    EXPECT_EQ(platform.take_console(), "11/16 18:44:43 \nruns\n");
    DTFault_ShowInitLog(fault);
    EXPECT_EQ(platform.take_console(), "11/16 18:44:43 \nstarted\n");
    DTBuf *buf = DTBuf_New(1, 100, 0);
    DTFault_ShowRunLogToBuf(fault, buf);
    DTFault_ShowInitLogToBuf(fault, buf);
    EXPECT_STREQ(reinterpret_cast<char *>(buf->data),
                 "11/16 18:44:43 \nruns\n11/16 18:44:43 \nstarted\n");
    DTBuf_Release(buf);
}

TEST_F(FaultRegistry, IgnoreStopsLogsAndNotValues) {
    DTFault *fault = DTFault_Regist("pump", nullptr);
    DTFault_Ignore(fault, 2);
    DTFault_SetRunLog(fault, 0, 0, "dropped");
    DTFault_SetInitLog(fault, 0, 0, "dropped");
    DTFault_SetCounter(fault, 1, 1);
    EXPECT_EQ(fault->run_logger->info, nullptr);
    EXPECT_EQ(fault->init_logger->info, nullptr);
    EXPECT_EQ(records_of(g_DTFault_Info).size(), 1u);
    DTFault_Ignore(fault, 0);
    DTFault_SetRunLog(fault, 1, 0, "kept");
    EXPECT_EQ(records_of(fault->run_logger->info).size(), 2u);
}

TEST_F(FaultRegistry, ANullFaultCreatesNothing) {
    DTFault_Ignore(nullptr, 1);
    EXPECT_EQ(DTFault_SetInfo(nullptr, 1) + DTFault_SetInitLog(nullptr, 0, 0, "x") +
                  DTFault_SetRunLog(nullptr, 0, 0, "x") + DTFault_SetRegist(nullptr, 1, 1) +
                  DTFault_SetCounter64(nullptr, 1, 1) + DTFault_SetValue(nullptr, 1, "x", 1) +
                  DTFault_ShowInitLog(nullptr) + DTFault_ShowRunLog(nullptr),
              0u);
    EXPECT_EQ(g_DTFault_Info, nullptr);
    EXPECT_EQ(g_fcm_logger, nullptr);
    EXPECT_THAT(platform.prints, IsEmpty());
}

// Blocks of a registration, in order: fault, init log, run log, registry, node. A log that cannot
// be had is left out; without any other nothing is left behind.
TEST_F(FaultRegistry, RegistersWithoutALogOrNotAtAllWhenMemoryIsShort) {
    for (const unsigned nth : {1u, 4u, 5u}) {
        platform.fail_only(nth);
        EXPECT_EQ(DTFault_Regist("pump", nullptr), nullptr);
        EXPECT_EQ(platform.blocks, 0u);
        EXPECT_EQ(g_DTFault_List, nullptr);
    }
    platform.allocations_work();
    DTFault_Regist("first", nullptr);
    platform.fail_only(2);
    DTFault *fault = DTFault_Regist("pump", nullptr);
    ASSERT_NE(fault, nullptr);
    EXPECT_EQ(fault->init_logger, nullptr);
    DTFault_SetInitLog(fault, 0, 0, "nowhere");
    DTFault_SetRunLog(fault, 1, 0, "kept");
    DTFault_ShowInitLog(fault);
    EXPECT_THAT(platform.prints, IsEmpty());
    EXPECT_EQ(records_of(fault->run_logger->info).size(), 2u);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTFault_SetCounter(fault, 1, 1), 0u);
    EXPECT_EQ(g_DTFault_Info, nullptr);
    platform.allocations_work();
    DTFault_SetCounter(fault, 1, 1);
    EXPECT_EQ(records_of(g_DTFault_Info).size(), 1u);
}
