#include "collect/collect_getdata.h"

#include "collect/collect_api.h"
#include "collect/collect_client.h"
#include "collect/collect_run.h"

namespace {

void append_directory() {
    CollectClient_SetType(COLLECT_MESSAGE_DIRECTORY);
    for (int32_t slot = 0; slot < g_collect_param.count; ++slot) {
        CollectClient_AppendInt(static_cast<uint32_t>(slot));
        CollectClient_AppendString(g_collect_param.items[slot]->name);
    }
}

bool collect(const CollectItem *item, uint32_t command) {
    if (!item->start_cb) return true;
    const dt::RunName name(item);
    dt::run_log(name, "begin...");
    item->start_cb(command);
    dt::run_log(name, "end");
    return dt::run_flush();
}

} // namespace

int32_t Collect_Start(const char *address, uint32_t port, uint32_t command, int32_t sequence,
                      uint8_t identity0, uint8_t identity1) {
    if (!dt::run_open(address, port, sequence, identity0, identity1)) return 0;
    append_directory();
    if (!dt::run_flush()) return 0;
    CollectClient_SetType(COLLECT_MESSAGE_DATA);
    for (int32_t slot = 0; slot < g_collect_param.count; ++slot)
        if (!collect(g_collect_param.items[slot], command)) return 0;
    CollectClient_End();
    return 1;
}
