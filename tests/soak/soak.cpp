// Days of work in minutes: everything a device does, in a loop, with random sizes. Prints a line a
// second; fails when resident memory or the library's accounts still grow after the warm-up.
#include "support/files.h"
#include "support/network.h"
#include "support/platform.h"
#include "support/server.h"

#include <dt/dt.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

constexpr unsigned long warm_up = 8000; // rounds until all logs are full

std::mt19937 generator(20141116);
CollectItem *item;
DTFault *faults[3];
char area[3000];

uint32_t upto(uint32_t most) { return static_cast<uint32_t>(generator()) % (most + 1); }

std::string text(uint32_t most) { return std::string(upto(most), 'x'); }

void log_and_count() {
    for (DTFault *fault : faults) {
        DTFault_SetRunLog(fault, upto(3), 0, text(300).c_str());
        DTFault_SetInitLog(fault, 1, 0, text(50).c_str());
        DTFault_SetCounter64(fault, upto(9), upto(UINT32_MAX - 1));
        DTFault_SetValue(fault, upto(9), area, upto(3000));
    }
}

void put_values(uint32_t) {
    Collect_PutInt(item, 1, upto(99));
    Collect_PutString(item, 2, text(5000).c_str(), 0);
    Collect_PutStruct(item, 3, area, static_cast<int32_t>(upto(3000)));
}

void collect() {
    CollectionServer server(upto(9) == 0 ? static_cast<int>(upto(4)) : 1000000);
    if (upto(1) == 0)
        Collect_Start("127.0.0.1", server.port(), upto(2), 0, 1, 2);
    else
        Collect_SelfTest("127.0.0.1", server.port(), 0, 1, 2);
    CollectClient_End(); // of a run that the server broke off
}

// Objects that come and go.
void churn() {
    DTHash *hash = DTHash_New(4, 8, 1 + upto(60), nullptr);
    DTTable *table = DTTable_New();
    DTBuf *buf = DTBuf_New(1, 100, 0);
    DTInfo *store = DTInfo_New(1024 * (1 + upto(20)));
    DTTable_SetTitle(table, 0, text(120).c_str(), DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 1, "text", DTTABLE_TEXT, "%s", 'C');
    DTInfo_SetFlag(store, 7, 1);
    for (int i = 0; i < 50; ++i) {
        const uint32_t key = upto(30);
        DTHash_Set(hash, &key, area);
        if (upto(2) == 0) DTHash_Delete(hash, &key);
        DTTable_Set(table, static_cast<int32_t>(key), 0, &key);
        DTTable_Set(table, static_cast<int32_t>(key), 1, text(150).c_str());
        DTInfo_AddInfo(store, 1, upto(9), "abc", 3, text(100).data(), 0, "xyz", 3, upto(5));
    }
    DTTable_ShowToBuf(table, buf);
    DTInfo_ShowInfo(store, -1, "6162", "", 0, 0, 0, 3);
    DTInfo_ReSize(store, 1024 * upto(20));
    DTHash_Release(hash);
    DTTable_Release(table);
    DTBuf_Release(buf);
    DTInfo_Release(store);
}

void work() {
    log_and_count();
    collect();
    churn();
    DTFault_Start();
    // What the fakes have recorded is no growth of the library's.
    platform.prints.clear();
    platform.delays.clear();
    network = {};
}

uint32_t resident_kib() {
    long total, pages;
    if (!(std::ifstream("/proc/self/statm") >> total >> pages)) abort();
    return static_cast<uint32_t>(pages * getpagesize() / 1024);
}

} // namespace

int main(int argc, char **argv) {
    const int seconds = argc > 1 ? atoi(argv[1]) : 60;
    DTInfo_SetTrace(0);
    for (DTFault *&fault : faults) {
        fault = DTFault_Regist("fault", nullptr);
        fault->init_logger->info_size = 65536;
    }
    item = Collect_New("collector", put_values, put_values);
    uint32_t warm[2] = {}, late[2] = {}; // most bytes accounted for, and resident
    unsigned long rounds = 0;
    const time_t start = time(nullptr);
    for (int second = 1; second <= seconds || rounds < 2 * warm_up; ++second) {
        for (; time(nullptr) < start + second; ++rounds) work();
        const uint32_t bytes = outstanding(0) + outstanding(COLLECT_OWNER_ID);
        const uint32_t resident = resident_kib();
        const bool is_warming = second <= std::min(60, seconds / 2) || rounds < warm_up;
        uint32_t(&most)[2] = is_warming ? warm : late;
        most[0] = std::max(most[0], bytes);
        most[1] = std::max(most[1], resident);
        fprintf(stderr, "%4d s  %8lu rounds  %8u bytes in %u blocks  %7u KiB resident\n", second,
                rounds, bytes, platform.blocks, resident);
    }
    const bool flat = late[0] <= warm[0] && late[1] <= warm[1] + 64;
    fprintf(stderr, "%s: %u bytes, then %u; %u KiB resident, then %u\n", flat ? "flat" : "GROWING",
            warm[0], late[0], warm[1], late[1]);
    return flat ? 0 : 1;
}
