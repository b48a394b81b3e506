#include "records/DTFuncLog.h"

#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "records/DTBuffer.h"

#include <string.h>

namespace {

constexpr int32_t not_found = INT32_MAX; // an index that no record has

void print(const char *text) { DTPrint_Show(text, 0); }

// Entries that can be looked at.
int32_t entries(const DTFuncLog *log) { return log->funcs ? log->func_count : 0; }

int32_t index_of(const DTFuncLog *log, const char *name) {
    for (int32_t i = 0; i < entries(log); ++i)
        if (log->funcs[i].name && strcmp(log->funcs[i].name, name) == 0) return i;
    return not_found;
}

// A format that does not fit is cut: what is left of it still names the record's first fields.
void show_record(int32_t number, const DTFunc &func, const uint8_t *value, uint32_t length) {
    print(DTString_SFormat("\nindex=%d,func:", static_cast<int>(number)));
    print(func.name);
    print(" ");
    DTPrint_Puts(func.detail, 0);
    char format[100];
    DTString_FormatN(format, sizeof format, "*T%s", func.fmt ? func.fmt : "");
    DTBuffer_UNPackN(format, value, length);
}

} // namespace

static_assert(sizeof(void *) != 4 || sizeof(DTFuncLog) == 16, "four words on the device");

DTFuncLog *DTFuncLog_New(const DTFunc *funcs, int32_t func_count, uint32_t max_size) {
    DTFuncLog *log = static_cast<DTFuncLog *>(DTMem_LocalMalloc(sizeof(DTFuncLog)));
    if (!log) return nullptr;
    *log = {funcs, func_count, DTInfo_New(max_size), 0};
    if (log->info) return log;
    DTMem_LocalFree(log);
    return nullptr;
}

void DTFuncLog_Release(DTFuncLog *log) {
    if (!log) return;
    DTInfo_Release(log->info);
    DTMem_LocalFree(log);
}

void DTFuncLog_Ignore(DTFuncLog *log, uint32_t value) {
    if (log) log->ignore = value;
}

int DTFuncLog_Get(DTFuncLog *log, int32_t index, uint32_t *pos, uint32_t *id, const uint8_t **value,
                  uint32_t *value_len) {
    if (!log || index >= log->func_count) return 0;
    const uint8_t key = static_cast<uint8_t>(index);
    const uint8_t *rec_key;
    uint8_t rec_key_len;
    uint16_t length;
    if (!DTInfo_Get(log->info, index >= 0 ? &key : nullptr, 1, pos, &rec_key, &rec_key_len, value,
                    &length))
        return 0;
    if (id) *id = rec_key_len != 0 ? *rec_key : DTFUNCLOG_NO_FUNCTION;
    if (value_len) *value_len = length;
    return 1;
}

void DTFuncLog_ShowFunc(const DTFuncLog *log) {
    if (!log) return;
    DTPrint_Puts("", 0);
    for (int32_t i = 0; i < entries(log); ++i) {
        const DTFunc &func = log->funcs[i];
        print(func.name);
        DTPrint_Puts(func.detail, 0);
        print(
            DTString_SFormat("id:%d;cnt:%d;fmt:", static_cast<int>(i), static_cast<int>(func.cnt)));
        DTPrint_Puts(func.fmt, 0);
    }
}

void DTFuncLog_Show(DTFuncLog *log, const char *name, int32_t from, int32_t count) {
    if (!log) return;
    const int32_t index = name && *name ? index_of(log, name) : DTFUNCLOG_ANY;
    uint32_t pos = DTINFO_FIRST;
    uint32_t id;
    const uint8_t *value;
    uint32_t length;
    for (int32_t n = 0; DTFuncLog_Get(log, index, &pos, &id, &value, &length); ++n) {
        if (n < from) continue;
        if (int64_t{n} - from >= count || int64_t{id} >= entries(log)) return;
        show_record(n, log->funcs[id], value, length);
    }
}
