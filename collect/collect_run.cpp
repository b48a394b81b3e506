#include "collect/collect_run.h"

#include "base/text.h"
#include "collect/collect_api.h"
#include "collect/collect_client.h"
#include "collect/connection.h"
#include "foundation/DTString.h"
#include "foundation/DTTime.h"

namespace dt {

namespace {

void log_line(const char *line) { DTLogger_Write(g_collect_param.logger, 1, line); }

} // namespace

RunName::RunName(const CollectItem *item) { copy_text(text, item->name); }

bool run_open(const char *address, uint32_t port, int32_t sequence, uint8_t identity0,
              uint8_t identity1) {
    if (!CollectClient_Start(address, static_cast<int32_t>(port))) {
        log_line(DTString_SFormat("connect to server fail."));
        return false;
    }
    const uint8_t opening[] = {identity0, identity1, 0, 0};
    CollectClient_SetType(COLLECT_MESSAGE_OPENING);
    CollectClient_AppendBuffer(opening, sizeof opening);
    CollectClient_Flush(sequence);
    return true;
}

bool run_flush() {
    if (CollectClient_Flush(0)) return true;
    log_line(DTString_SFormat("flush to server fail."));
    values_open = false; // what is put now would precede the next opening message
    return false;
}

void run_log(const RunName &name, const char *step) {
    char time[20];
    DTTime_Format(time, "YY/MM/DD HH:MI:SS", 0);
    log_line(DTString_SFormat("%s [%s] %s\n", time, name.text, step));
}

} // namespace dt
