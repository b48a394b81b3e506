// A device that has been running for a while: its stores exist and are full.
#include "support/platform.h"
#include "support/server.h"

#include <dt/dt.h>
#include <gmock/gmock.h>

namespace {

CollectItem *item;
std::string allocations_of_collection;

std::string accounting() {
    platform.take_console();
    DTMem_Show();
    return platform.take_console();
}

void log_and_count(DTLogger *logger, DTFault *fault, DTInfo *store) {
    DTLogger_Write(logger, 1, "the pump runs");
    DTFault_SetRunLog(fault, 1, 0, "pressure read");
    DTFault_SetCounter(fault, 1, 2);
    DTFault_SetValue(fault, 3, "raw", 3);
    DTInfo_Append(store, "k", 1, "value", 5);
    DTInfo_AddInfo(store, 1, 2, "one", 3, "two", 3, "three", 5, 4);
}

void put(uint32_t) {
    const std::string before = accounting();
    for (uint32_t key = 0; key < 500; ++key) {
        Collect_PutInt(item, key, 1);
        Collect_PutLong(item, key, 2);
        Collect_PutString(item, key, "three", 0);
        Collect_PutStruct(item, key, "four", 4);
    }
    EXPECT_EQ(accounting(), before);
    allocations_of_collection = before;
}

} // namespace

TEST(SteadyState, AllocatesNothing) {
    DTInfo_SetTrace(0);
    DTLogger *logger = DTLogger_New(255);
    DTLogger_SetInfoSize(logger, 4096);
    DTFault *fault = DTFault_Regist("pump", nullptr);
    DTLogger_SetInfoSize(fault->run_logger, 4096);
    DTInfo *store = DTInfo_New(4096);
    g_DTFault_Info = DTInfo_New(4096);
    for (int i = 0; i < 1000; ++i) log_and_count(logger, fault, store);
    const std::string before = accounting();
    for (int i = 0; i < 1000; ++i) log_and_count(logger, fault, store);
    EXPECT_EQ(accounting(), before);

    g_collect_param.logger = logger;
    item = Collect_New("pump", put, nullptr);
    CollectionServer server;
    EXPECT_EQ(Collect_Start("127.0.0.1", server.port(), 1, 0, 1, 2), 1);
    EXPECT_THAT(allocations_of_collection, testing::HasSubstr("malloc"));
}
