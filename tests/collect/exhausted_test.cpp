// Every allocation of a device's day fails in turn: the answers are failures, never crashes, and
// what is not reachable any more was given back.
#include "support/platform.h"
#include "support/server.h"

#include <dt/dt.h>
#include <gmock/gmock.h>

namespace {

CollectItem *item;
DTFault *fault;

unsigned blocks_of(const DTInfo *store) { return store ? 1 + (store->memory != nullptr) : 0; }

unsigned blocks_of(const DTLogger *logger) { return logger ? 1 + blocks_of(logger->info) : 0; }

// Blocks that live on by design: the fault registry with its logs, and the fault store.
unsigned kept_blocks() {
    unsigned blocks = blocks_of(g_DTFault_Info) + (g_DTFault_List != nullptr);
    for (int32_t i = 0; i < DTList_Length(g_DTFault_List); ++i) {
        const DTFault *kept = reinterpret_cast<DTFault *>(DTList_Get(g_DTFault_List, i));
        blocks += 2 + blocks_of(kept->init_logger) + blocks_of(kept->run_logger);
    }
    return blocks;
}

void collect(uint32_t) {
    Collect_PutInt(item, 1, 2);
    Collect_PutString(item, 2, std::string(2500, 's').c_str(), 0);
    Collect_PutRunLog(item, 3, fault);
}

void a_day() {
    DTBuf *buf = DTBuf_New(1, 16, 0);
    DTList *list =
        DTList_New(2, [](uintptr_t value) { DTMem_Free(7, reinterpret_cast<void *>(value)); });
    for (int i = 0; i < 3; ++i) {
        void *value = DTMem_Malloc(7, 10);
        if (!DTList_Push(list, reinterpret_cast<uintptr_t>(value))) DTMem_Free(7, value);
    }
    DTLogger *logger = DTLogger_New(255);
    for (int i = 0; i < 60; ++i) DTLogger_Write(logger, 1, "a line of the log, kept in its store");
    DTLogger_ShowToBuf(logger, buf);
    fault = DTFault_Regist("pump", nullptr);
    DTFault_SetInitLog(fault, 1, 0, "made");
    DTFault_SetRunLog(fault, 1, 0, "runs");
    DTFault_SetCounter(fault, 1, 2);
    DTFault_SetValue(fault, 1, std::string(2000, 'v').data(), 2000);
    g_collect_param.logger = logger;
    item = Collect_New("pump", collect, collect);
    {
        CollectionServer server;
        Collect_Start("127.0.0.1", server.port(), 1, 0, 1, 2);
        CollectClient_End();
    }
    g_collect_param.logger = nullptr;
    Collect_Release(item);
    DTLogger_Release(logger);
    DTList_Release(list);
    DTBuf_Release(buf);
}

} // namespace

TEST(ExhaustedMemory, FailsEachAllocationInTurnAndLeaksNothing) {
    DTInfo_SetTrace(0);
    DTPrint_ShowEx("", 0); // the sink
    const unsigned before = platform.blocks;
    unsigned needed = 0;
    for (unsigned nth = 1; needed == 0; ++nth) {
        const unsigned asked = platform.allocations;
        platform.fail_only(nth);
        a_day();
        if (platform.allocations - asked < nth) needed = nth - 1;
        platform.allocations_work();
        ASSERT_EQ(platform.blocks, before + kept_blocks()) << "allocation " << nth;
        ASSERT_EQ(outstanding(7) + outstanding(COLLECT_OWNER_ID), 0u) << "allocation " << nth;
    }
    EXPECT_GT(needed, 30u);
    platform.fail_allocations_from(1);
    a_day();
    platform.allocations_work();
    EXPECT_EQ(platform.blocks, before + kept_blocks());
}
