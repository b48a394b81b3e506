// A scenario through the whole interface, in which each allocation fails in turn: the answers are
// the ones that the headers promise, nothing is lost, and what was refused succeeds when it is
// asked for again, with the same results to the byte.
#include "support/clock.h"
#include "support/files.h"
#include "support/platform.h"
#include "support/server.h"
#include "support/store.h"

#include <dt/dt.h>

namespace {

bool memory_returns; // behind the allocation that fails: what was refused is tried once more

// Work that leaves nothing behind where it is refused memory.
template <typename Work> void served(Work work) {
    unsigned before;
    do {
        before = platform.refused;
        work();
    } while (memory_returns && platform.refused != before);
}

// A call that answers with its failure when it is refused memory, and otherwise not.
template <typename Call> auto answered(Call call, decltype(call()) failure = {}) {
    decltype(call()) answer;
    served([&] {
        const unsigned before = platform.refused;
        answer = call();
        const bool refused = platform.refused != before;
        if (refused || memory_returns) {
            EXPECT_EQ(answer == failure, refused);
        }
    });
    return answer;
}

// What a step has to show goes on the console with what it prints.
void note(const std::string &text) { platform.prints.push_back(text + "\n"); }

void note(const DTBuf *buf) {
    if (buf) note(std::string(buf->data, buf->data + buf->length));
}

DTBuf *new_text() {
    return answered([] { return DTBuf_New(1, 4, 0); });
}

void objects() {
    char area[20], kept[5] = "";
    DTPrint *print = answered([&] { return DTPrint_New(area, sizeof area); });
    DTPrint_Release(print);
    DTMem *block = answered([] { return DTMem_New(4, 0); });
    DTMem_memcpy(block, 0, "abcd", 4);
    if (DTMem *grown = answered([&] { return DTMem_realloc(block, 2000); })) block = grown;
    DTMem_memget(block, 0, kept, 4);
    note(kept);
    DTMem_Release(block);
    DTBuf *buf = new_text();
    for (const char *word : {"one ", "more ", "time"})
        answered([&] { return DTBuf_Append(buf, word, 0); });
    answered([&] { return DTBuf_Set(buf, 50, "x", 1); });
    note(buf);
    DTBuf_Release(buf);
    DTSet *set = answered([] { return DTSet_New(100); });
    DTSet_Set(set, 42, 1);
    note(std::to_string(DTSet_Get(set, 42)));
    DTSet_Release(set);
}

void lists() {
    DTHash *hash = answered([] { return DTHash_New(4, 8, 3, nullptr); });
    const uint64_t value = 100;
    for (uint32_t key = 0; key < 5; ++key) answered([&] { return DTHash_Set(hash, &key, &value); });
    DTHash_Show(hash); // through the pack language
    DTHash_Release(hash);
    DTList *list = answered([] { return DTList_New(2, [](uintptr_t) {}); });
    for (uintptr_t number : {1, 2, 3}) answered([&] { return DTList_Push(list, number); });
    served([&] { DTList_Set(list, 5, 4); });
    for (int32_t i = 0; i < DTList_Length(list); ++i) note(std::to_string(DTList_Get(list, i)));
    DTList_Release(list);
    DTTable *table = answered([] { return DTTable_New(); });
    served([&] { DTTable_SetTitle(table, 0, "text", DTTABLE_TEXT, "%s", 'L'); });
    served([&] { DTTable_Set(table, 2, 0, "a dozen"); });
    served([&] { DTTable_Show(table); });
    DTTable_Release(table);
    fake_clock.microseconds = 0;
    answered([] { return DTTimer_Regist([](DTTimer *) { return 1; }, 50); });
    DTTimer_Show();
    DTList_Release(std::exchange(g_DTTimer_List, nullptr));
}

void records() {
    DTInfo *store = answered([] { return DTInfo_New(4096); });
    for (const uint32_t limit : {2048, 0}) {
        answered([&] { return DTInfo_ReSize(store, limit); });
        for (uint32_t id = 0; id < 60; ++id)
            served([&] { DTInfo_AddInfo(store, 1, id, "abc", 3, "data", 4, nullptr, 0, id % 3); });
    }
    DTInfo_ShowInfo(store, -1, "6162", "", 2, 1, 0, 0);
    DTInfo_Release(store);
}

void logs() {
    DTLogger *logger = answered([] { return DTLogger_New(255); });
    answered([&] { return DTLogger_Write(logger, 1, "first"); }, -2);
    served([&] {
        DTLogger_ClearInfo(logger);
        for (int i = 0; i < 40; ++i) DTLogger_Write(logger, 1, "a line of the log");
        DTLogger_Append(logger, 2, 0, "the last");
    });
    DTBuf *shown = new_text();
    served([&] {
        DTBuf_Clear(shown);
        DTLogger_ShowToBuf(logger, shown);
    });
    note(shown);
    DTBuf_Release(shown);
    DTLogger_Release(logger);
    static const DTFunc open = {"open", "H", 1, " opens"};
    DTFuncLog *log = answered([] { return DTFuncLog_New(&open, 1, 2048); });
    for (uint8_t i = 0; i < 200; ++i) {
        const uint8_t record[] = {i, 0, 0, 1, i, i};
        answered([&] { return DTInfo_Append(log ? log->info : nullptr, "", 1, record, 6); }, -1);
    }
    DTFuncLog_Show(log, nullptr, 10, 20);
    DTFuncLog_Release(log);
}

DTFault *fault;

// The registry lives on with a fault that has no logs; here it begins anew.
void forget_faults() {
    for (DTLogger *log :
         {fault ? fault->init_logger : nullptr, fault ? fault->run_logger : nullptr})
        DTLogger_Release(log);
    DTList_Release(std::exchange(g_DTFault_List, nullptr));
    fault = nullptr;
}

void faults() {
    answered([] {
        forget_faults();
        fault = DTFault_Regist("pump", [] { DTFault_SetCounter64(fault, 1, 2); });
        return fault && fault->init_logger && fault->run_logger;
    });
    served([] {
        if (fault) DTLogger_ClearInfo(fault->run_logger);
        for (int i = 0; i < 30; ++i) DTFault_SetRunLog(fault, 1, 0, "runs, and will for long");
    });
    served([] { DTFault_SetCounter(fault, 7, 100); });
    served([] { DTFault_SetValue(fault, 8, std::string(3000, 'v').data(), 3000); });
    DTFault_Start();
    note(fault_log.content());
    forget_faults();
}

CollectItem *item;

void put_values(uint32_t) {
    Collect_PutInt(item, 1, 2);
    Collect_PutString(item, 2, std::string(2500, 's').c_str(), 0);
}

int run(bool selftest) {
    CollectionServer server;
    DTLogger_ClearInfo(g_collect_param.logger);
    if (!(selftest ? Collect_SelfTest("127.0.0.1", server.port(), 1, 2, 3)
                   : Collect_Start("127.0.0.1", server.port(), 1, 1, 2, 3)))
        return 0;
    for (const Message &message : server.messages())
        note(std::to_string(message.type) + message.payload);
    return 1;
}

void collection() {
    g_collect_param.logger = answered([] { return DTLogger_New(255); });
    answered([] { return DTLogger_Write(g_collect_param.logger, 1, "begins"); }, -2);
    item = answered([] { return Collect_New("pump", put_values, put_values); });
    for (const bool selftest : {false, true}) {
        answered([=] { return run(selftest); });
        Collect_ShowLog();
    }
    Collect_Release(item);
    DTLogger_Release(std::exchange(g_collect_param.logger, nullptr));
}

std::string scenario() {
    platform.take_console();
    for (const auto step : {objects, lists, records, logs, faults, collection}) step();
    return platform.take_console();
}

std::vector<uint32_t> kept() {
    return {platform.blocks, outstanding(0), outstanding(COLLECT_OWNER_ID)};
}

} // namespace

TEST(ExhaustedMemory, IsAnsweredAndLeavesNoTrace) {
    fake_clock.stand_at(a_sunday_evening);
    DTInfo_SetTrace(0);
    DTPrint_ShowEx("", 0);     // the sink
    DTMem_Malloc_Static(0, 4); // and the pool stay
    const std::vector<uint32_t> before = kept();
    memory_returns = true;
    const unsigned asked = platform.allocations;
    const std::string expected = scenario();
    const unsigned needed = platform.allocations - asked;
    EXPECT_GT(needed, 100u);
    for (unsigned nth = 1; nth <= needed && !HasFailure(); ++nth) {
        SCOPED_TRACE(nth);
        memory_returns = true;
        platform.fail_only(nth);
        EXPECT_EQ(scenario(), expected);
        EXPECT_EQ(kept(), before);
        memory_returns = false;
        platform.fail_allocations_from(nth);
        scenario();
        platform.allocations_work();
        EXPECT_EQ(kept(), before);
    }
    memory_returns = true;
    EXPECT_EQ(scenario(), expected);
}
