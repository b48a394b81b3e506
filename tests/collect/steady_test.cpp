// A device that has been running for a while: its stores exist and are full.
#include "support/platform.h"
#include "support/server.h"

#include <dt/dt.h>
#include <gtest/gtest.h>

namespace {

CollectItem *item;
DTFault *fault;
bool collected;

template <typename Work> void expect_no_allocation(int times, Work work) {
    const auto accounts = [] {
        platform.take_console();
        DTMem_Show();
        return platform.take_console();
    };
    const std::string before = accounts();
    while (times-- > 0) work();
    EXPECT_EQ(accounts(), before);
}

void log_and_count() {
    DTLogger_Write(g_collect_param.logger, 1, "the pump runs");
    DTFault_SetRunLog(fault, 1, 0, "pressure read");
    DTFault_SetCounter(fault, 1, 2);
    DTFault_SetValue(fault, 3, "raw", 3);
    DTInfo_AddInfo(g_DTFault_Info, 1, 2, "one", 3, "two", 3, "three", 5, 4);
}

void put(uint32_t) {
    expect_no_allocation(500, [] {
        Collect_PutInt(item, 1, 1);
        Collect_PutLong(item, 2, 2);
        Collect_PutString(item, 3, "three", 0);
        Collect_PutStruct(item, 4, "four", 4);
    });
    collected = true;
}

} // namespace

TEST(SteadyState, AllocatesNothing) {
    DTInfo_SetTrace(0);
    fault = DTFault_Regist("pump", nullptr);
    g_collect_param.logger = DTLogger_New(255);
    for (DTLogger *logger : {g_collect_param.logger, fault->run_logger})
        DTLogger_SetInfoSize(logger, 4096);
    g_DTFault_Info = DTInfo_New(4096);
    for (int i = 0; i < 1000; ++i) log_and_count();
    expect_no_allocation(1000, log_and_count);
    item = Collect_New("pump", put, nullptr);
    CollectionServer server;
    EXPECT_EQ(Collect_Start("127.0.0.1", server.port(), 1, 0, 1, 2), 1);
    EXPECT_TRUE(collected);
}
