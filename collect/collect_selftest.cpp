#include "collect/collect_selftest.h"

#include "collect/collect_api.h"
#include "collect/collect_client.h"
#include "collect/collect_run.h"

namespace {

bool test(const CollectItem *item) {
    if (!item->selftest_cb) return true;
    const dt::RunName name(item);
    dt::run_log(name, "selftest begin...");
    CollectClient_CollectString(COLLECT_SELFTEST_NAME, 0, 0, name.text, 0);
    item->selftest_cb(0);
    dt::run_log(name, "selftest end");
    return dt::run_flush();
}

} // namespace

int32_t Collect_SelfTest(const char *address, uint32_t port, int32_t sequence, uint8_t identity0,
                         uint8_t identity1) {
    if (!dt::run_open(address, port, sequence, identity0, identity1)) return 0;
    CollectClient_SetType(COLLECT_MESSAGE_DATA);
    for (int32_t slot = 0; slot < g_collect_param.count; ++slot)
        if (!test(g_collect_param.items[slot])) return 0;
    CollectClient_End();
    return 1;
}
