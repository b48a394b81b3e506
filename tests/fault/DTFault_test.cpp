#include "support/platform.h"
#include "support/store.h"

#include <dt/fault.h>

namespace {

constexpr char stamp[] = "11/16 18:44:43 ";

std::string bytes(std::initializer_list<int> values) { return {values.begin(), values.end()}; }

struct FaultRegistry : RecordsTest {};

} // namespace

TEST_F(FaultRegistry, NumbersFaultsInTheirOrderAsLongAsTheyCanBeToldApart) {
    DTFault *first = DTFault_Regist("pump", nullptr);
    DTFault *second = DTFault_Regist("a name of 22 characters and more", nullptr);
    EXPECT_EQ(first->index + 10 * second->index, 10);
    EXPECT_STREQ(second->name, "a name of 22 character");
    EXPECT_EQ(DTList_Get(g_DTFault_List, 1), reinterpret_cast<uintptr_t>(second));
    for (int i = 2; i < 256; ++i) EXPECT_NE(DTFault_Regist("pump", nullptr), nullptr);
    EXPECT_EQ(DTFault_Regist("pump", nullptr), nullptr);
    EXPECT_EQ(DTList_Length(g_DTFault_List), 256);
}

TEST_F(FaultRegistry, StoresEachKindUnderItsKey) {
    DTFault_Regist("other", nullptr);
    DTFault *fault = DTFault_Regist("pump", nullptr);
    DTFault_SetRegist(fault, 1, 0x01020304);
    DTFault_SetRegist64(fault, 2, 0x0102030405060708);
    DTFault_SetRegistEx(fault, 9, "abc", 3);
    DTFault_SetCounter(fault, 7, 100);
    DTFault_SetCounter64(fault, 3, 4294967298);
    DTFault_SetCounterEx(fault, 9, nullptr, 0);
    DTFault_SetValue(fault, 1, "xy", 2);
    EXPECT_EQ(g_DTFault_Info->max_size, 10485760u);
    EXPECT_EQ(records_of(g_DTFault_Info),
              (Records{{bytes({0, 1}), bytes({1, 0, 0, 0, 4, 3, 2, 1})},
                       {bytes({1, 1}), bytes({2, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1})},
                       {bytes({2, 1}), bytes({9, 0, 0, 0, 3, 0, 0, 0}) + "abc"},
                       {bytes({3, 1}), bytes({7, 0, 0, 0, 100, 0, 0, 0})},
                       {bytes({4, 1}), bytes({3, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0})},
                       {bytes({5, 1}), bytes({9, 0, 0, 0, 0, 0, 0, 0})},
                       {bytes({6, 1}), bytes({1, 0, 0, 0, 2, 0, 0, 0}) + "xy"}}));
}

TEST_F(FaultRegistry, RefusesDataBeyondARecord) {
    DTFault *fault = DTFault_Regist("pump", nullptr);
    const std::string data(65536 + 8, 'd');
    for (const uint32_t length : {292u, 293u, 65527u, 65528u, 65536u + 8, UINT32_MAX}) {
        DTFault_SetRegistEx(fault, 1, data.data(), length);
        DTFault_SetCounterEx(fault, 2, data.data(), length);
        if (length > 293) DTFault_SetValue(fault, 3, data.data(), length);
    }
    std::vector<size_t> sizes;
    for (const auto &record : records_of(g_DTFault_Info)) sizes.push_back(record.second.size());
    EXPECT_EQ(sizes, (std::vector<size_t>{300, 300, 65535}));
}

TEST_F(FaultRegistry, KeepsTwoLogsApartAndDropsTheLinesOfAnIgnoredFault) {
    DTFault *fault = DTFault_Regist("pump", nullptr);
    for (const uint32_t ignored : {2u, 0u}) {
        DTFault_Ignore(fault, ignored);
        DTFault_SetInitLog(fault, 2, 0, ignored ? "dropped" : "started");
        DTFault_SetRunLog(fault, 0, 0, ignored ? "dropped" : "runs");
    }
    EXPECT_EQ(platform.take_console(), "runs\n");
    EXPECT_EQ(records_of(fault->init_logger->info), (Records{{"w", stamp}, {"w", "started"}}));
    DTFault_ShowRunLog(fault);
    DTFault_ShowInitLog(fault);
    const char both[] = "11/16 18:44:43 \nruns\n11/16 18:44:43 \nstarted\n";
    EXPECT_EQ(platform.take_console(), both);
    DTBuf *buf = DTBuf_New(1, 100, 0);
    DTFault_ShowRunLogToBuf(fault, buf);
    DTFault_ShowInitLogToBuf(fault, buf);
    EXPECT_STREQ(reinterpret_cast<char *>(buf->data), both);
}

// Blocks of a registration, in order: fault, init log, run log, registry, node.
TEST_F(FaultRegistry, RegistersWithoutALogOrNotAtAllWhenMemoryIsShort) {
    platform.fail_only(5);
    EXPECT_EQ(DTFault_Regist("pump", nullptr), nullptr);
    EXPECT_EQ(platform.blocks, 0u);
    platform.fail_only(2);
    DTFault *fault = DTFault_Regist("pump", nullptr);
    DTFault_SetInitLog(fault, 1, 0, "nowhere");
    DTFault_SetRunLog(fault, 1, 0, "kept");
    DTFault_ShowInitLog(fault);
    EXPECT_EQ(platform.console(), "");
    EXPECT_EQ(records_of(fault->run_logger->info).size(), 2u);
    DTFault_Start(); // passes over the missing log
}
