#include "support/store.h"
#include "support/wire.h"

namespace {

struct FaultRegistry : RecordsTest {
    DTFault *first = DTFault_Regist("other", nullptr);
    DTFault *fault = DTFault_Regist("a name of 22 characters and more", nullptr);
};

} // namespace

TEST_F(FaultRegistry, NumbersFaultsInTheirOrderAsLongAsTheyCanBeToldApart) {
    EXPECT_EQ(first->index + 10 * fault->index, 10);
    EXPECT_EQ(fault->init_logger->flags + fault->run_logger->flags, 2 * 255u);
    EXPECT_STREQ(fault->name, "a name of 22 character");
    EXPECT_EQ(DTList_Get(g_DTFault_List, 1), reinterpret_cast<uintptr_t>(fault));
    for (int i = 2; i < 256; ++i) EXPECT_NE(DTFault_Regist("pump", nullptr), nullptr);
    EXPECT_EQ(DTFault_Regist("pump", nullptr), nullptr);
    EXPECT_EQ(DTList_Length(g_DTFault_List), 256);
}

TEST_F(FaultRegistry, StoresEachKindUnderItsKeyAndRefusesDataBeyondARecord) {
    DTFault_SetRegist(fault, 1, 0x01020304);
    DTFault_SetRegist64(fault, 2, 0x0102030405060708);
    DTFault_SetRegistEx(fault, 9, "abc", 3);
    DTFault_SetCounter(fault, 7, 100);
    DTFault_SetCounter64(fault, 3, 4294967298);
    DTFault_SetCounterEx(fault, 9, nullptr, 0);
    DTFault_SetValue(fault, 1, "xy", 2);
    const std::string data(65536 + 8, 'd');
    for (const uint32_t length : {292u, 293u, 65527u, 65528u, 65536u + 8, UINT32_MAX}) {
        DTFault_SetRegistEx(fault, 1, data.data(), length);
        DTFault_SetCounterEx(fault, 2, data.data(), length);
        if (length > 293) DTFault_SetValue(fault, 3, data.data(), length);
    }
    EXPECT_EQ(g_DTFault_Info->max_size, 10485760u);
    const std::string short_ones[] = {
        word(1) + word(0x01020304),  word(2) + word(0x05060708) + word(0x01020304),
        word(9) + word(3) + "abc",   word(7) + word(100),
        word(3) + word(2) + word(1), word(9) + word(0),
        word(1) + word(2) + "xy"};
    Records records;
    for (const std::string &value : short_ones)
        records.emplace_back(std::string{static_cast<char>(records.size()), 1}, value);
    records.emplace_back("\2\1", word(1) + word(292) + data.substr(0, 292));
    records.emplace_back("\5\1", word(2) + word(292) + data.substr(0, 292));
    records.emplace_back("\6\1", word(3) + word(65527) + data.substr(0, 65527));
    EXPECT_EQ(records_of(g_DTFault_Info), records);
}

TEST_F(FaultRegistry, KeepsTwoLogsApartAndDropsTheLinesOfAnIgnoredFault) {
    for (const uint32_t ignored : {2u, 0u}) {
        DTFault_Ignore(fault, ignored);
        DTFault_SetInitLog(fault, 2, 0, ignored ? "dropped" : "started");
        DTFault_SetRunLog(fault, 0, 0, ignored ? "dropped" : "runs");
    }
    EXPECT_EQ(platform.take_console(), "runs\n");
    EXPECT_EQ(records_of(fault->init_logger->info),
              (Records{{"w", "11/16 18:44:43 "}, {"w", "started"}}));
    const std::string both = "11/16 18:44:43 \nruns\n11/16 18:44:43 \nstarted\n";
    EXPECT_EQ(console_of(DTFault_ShowRunLog, fault) + console_of(DTFault_ShowInitLog, fault), both);
    DTBuf *buf = DTBuf_New(1, 100, 0);
    DTFault_ShowRunLogToBuf(fault, buf);
    DTFault_ShowInitLogToBuf(fault, buf);
    EXPECT_EQ(text_of(buf), both);
}
