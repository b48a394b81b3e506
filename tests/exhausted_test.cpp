// A scenario through the whole interface, in which each allocation fails in turn: the answers are
// the ones that the headers promise, nothing is lost, and what was refused succeeds when it is
// asked for again, with the same results to the byte.
#include "support/clock.h"
#include "support/files.h"
#include "support/network.h"
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

void memory() {
    void *bytes = answered([] { return DTMem_Malloc(7, 10); });
    DTMem *block = answered([] { return DTMem_New(4, 0); });
    DTMem_memcpy(block, 0, "abcd", 4);
    if (DTMem *grown = answered([&] { return DTMem_realloc(block, 2000); })) block = grown;
    DTMem *piece = DTMem_New(4, 1); // from the pool
    DTMem_memset(piece, 0, '-', 4);
    DTMem_memcpy(piece, 0, DTMem_Get(block, 0), 4);
    char kept[5] = "";
    DTMem_memget(piece, 0, kept, 4);
    note(kept);
    DTMem_Release(block);
    DTMem_Free(7, bytes);
}

void print_object() {
    char area[20];
    DTPrint *print = answered([&] { return DTPrint_New(area, sizeof area); });
    DTPrint_Print(print, "twelve chars", 3);
    DTPrint_Release(print);
}

void byte_buffer() {
    DTBuf *buf = new_text();
    for (const char *word : {"one ", "more ", "time"})
        answered([&] { return DTBuf_Append(buf, word, 0); });
    answered([&] { return DTBuf_Set(buf, 50, "x", 1); });
    note(buf);
    DTBuf_Release(buf);
}

void list() {
    DTList *list = answered([] {
        return DTList_New(2, [](uintptr_t v) { DTMem_Free(7, reinterpret_cast<void *>(v)); });
    });
    for (const char letter : {'a', 'b', 'c'}) {
        char *value = static_cast<char *>(answered([] { return DTMem_Malloc(7, 1); }));
        if (value) *value = letter;
        if (!answered([&] { return DTList_Push(list, reinterpret_cast<uintptr_t>(value)); }))
            DTMem_Free(7, value);
    }
    served([&] { DTList_Set(list, 5, 0); });
    note(std::to_string(DTList_Length(list)));
    for (int32_t i = 0; const uintptr_t value = DTList_Get(list, i); ++i)
        note(std::string(reinterpret_cast<char *>(value), 1));
    DTList_Release(list);
}

void hash() {
    DTHash *table = answered([] { return DTHash_New(4, 8, 3, nullptr); });
    for (uint32_t key = 0; key < 5; ++key) {
        const uint64_t value = key + 100;
        answered([&] { return DTHash_Set(table, &key, &value); });
    }
    DTHash_Show(table); // through the pack language
    DTHash_Release(table);
}

void set() {
    DTSet *set = answered([] { return DTSet_New(100); });
    DTSet_Set(set, 42, 1);
    note(std::to_string(DTSet_Get(set, 42)));
    DTSet_Release(set);
}

void fill(DTInfo *store, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string value(90, static_cast<char>('a' + i % 26));
        answered([&] { return DTInfo_Write(store, i % 2 ? "odd" : "even", value.c_str()); }, -1);
    }
    for (const auto &[key, value] : records_of(store, "e")) note(key + value);
}

void record_store() {
    DTInfo *store = answered([] { return DTInfo_New(4096); });
    fill(store, 60);
    answered([&] { return DTInfo_ReSize(store, 2048); });
    fill(store, 30);
    answered([&] { return DTInfo_ReSize(store, 0); }); // no limit
    fill(store, 50);
    DTInfo_Release(store);
}

void info_records() {
    DTInfo *store = answered([] { return DTInfo_New(4096); });
    for (uint32_t id = 0; id < 30; ++id)
        served([&] { DTInfo_AddInfo(store, 1, id, "abc", 3, "data", 4, nullptr, 0, id % 3); });
    DTInfo_ShowInfo(store, -1, "6162", "", 2, 1, 0, 0);
    DTInfo_Release(store);
}

void logger() {
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
}

void function_log() {
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
    if (fault) DTLogger_Release(fault->init_logger);
    if (fault) DTLogger_Release(fault->run_logger);
    DTList_Release(g_DTFault_List);
    g_DTFault_List = nullptr;
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

void table() {
    DTTable *table = answered([] { return DTTable_New(); });
    const int32_t number = 12;
    answered([&] {
        DTTable_SetTitle(table, 1, "number", DTTABLE_INT32, "%d", 'R');
        return DTTable_GetColNum(table);
    });
    served([&] { DTTable_SetTitle(table, 0, "text", DTTABLE_TEXT, "%s", 'L'); });
    answered([&] {
        DTTable_Set(table, 2, 1, &number);
        return DTTable_GetRowNum(table);
    });
    served([&] { DTTable_Set(table, 2, 0, "a dozen"); });
    std::string area(200, '.');
    answered([&] { return DTTable_ShowToBuffer(table, area.data(), 200); });
    note(area);
    DTBuf *shown = new_text();
    served([&] { DTTable_ShowToBuf(table, shown); });
    note(shown);
    served([&] { DTTable_Show(table); });
    DTBuf_Release(shown);
    DTTable_Release(table);
}

void timer() {
    fake_clock.microseconds = 0;
    answered([] { return DTTimer_Regist([](DTTimer *) { return 1; }, 50); });
    DTTimer_Show();
    DTList_Release(g_DTTimer_List);
    g_DTTimer_List = nullptr;
}

void configuration() {
    network.simulated = true;
    network.sent.clear();
    network.replies = {{"10.1.1.1", 5000, "9000"}};
    DTConfig_SetServer(nullptr, 0);
    note(std::to_string(DTConfig_GetInt("net", "mtu", 1500)));
    note(testing::PrintToString(network.sent));
    network.simulated = false;
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
    DTLogger_Release(g_collect_param.logger);
    g_collect_param.logger = nullptr;
}

std::string scenario() {
    platform.take_console();
    for (const auto step :
         {memory, print_object, byte_buffer, list, hash, set, record_store, info_records, logger,
          function_log, faults, table, timer, configuration, collection})
        step();
    return platform.take_console();
}

std::vector<uint32_t> kept() {
    return {platform.blocks, outstanding(0), outstanding(7), outstanding(COLLECT_OWNER_ID)};
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
    EXPECT_GT(needed, 150u);
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
