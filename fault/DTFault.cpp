#include "fault/DTFault.h"

#include "base/bytes.h"
#include "base/owner.h"
#include "base/text.h"

#include <string.h>

// Weak: see platform/posix/vrk.cpp.
[[gnu::weak]] DTList *g_DTFault_List;
[[gnu::weak]] DTInfo *g_DTFault_Info;
[[gnu::weak]] DTLogger *g_fcm_logger;

namespace {

enum Kind : uint8_t { regist, regist64, regist_ex, counter, counter64, counter_ex, value_data };

static_assert(sizeof(void *) != 4 || sizeof(DTFault) == 44, "as laid out on the device");

void release(DTFault *fault) {
    DTLogger_Release(fault->init_logger);
    DTLogger_Release(fault->run_logger);
    DTMem_LocalFree(fault);
}

DTFault *new_fault(const char *name, DTFaultCallback callback) {
    DTFault *fault = static_cast<DTFault *>(DTMem_LocalMalloc(sizeof(DTFault)));
    if (!fault) return nullptr;
    memset(fault, 0, sizeof *fault);
    dt::copy_text(fault->name, name);
    fault->callback = callback;
    fault->init_logger = DTLogger_New(255);
    fault->run_logger = DTLogger_New(255);
    fault->index = static_cast<uint8_t>(DTList_Length(g_DTFault_List));
    return fault;
}

// A registry that did not get its first fault is not kept.
bool enlist(DTFault *fault) {
    DTList *list =
        g_DTFault_List ? g_DTFault_List : DTList_New(0, dt::release_value<DTMem_LocalFree>);
    if (!DTList_Append(list, reinterpret_cast<uintptr_t>(fault))) {
        if (!g_DTFault_List) DTList_Release(list);
        return false;
    }
    g_DTFault_List = list;
    return true;
}

void log_line(const DTFault *fault, DTLogger *logger, uint32_t level, uint32_t unused,
              const char *text) {
    if (!fault->ignore) DTLogger_Append(logger, level, unused, text);
}

DTInfo *fault_store() {
    if (!g_DTFault_Info) g_DTFault_Info = DTInfo_New(DTFAULT_STORE_SIZE);
    return g_DTFault_Info;
}

template <typename T> void append_number(const DTFault *fault, Kind kind, uint32_t id, T number) {
    if (!fault) return;
    uint8_t data[sizeof id + sizeof number];
    dt::ByteWriter(data).put(id).put(number);
    const uint8_t key[] = {kind, fault->index};
    DTInfo_Append(fault_store(), key, sizeof key, data, sizeof data);
}

void append_data(const DTFault *fault, Kind kind, uint32_t id, const void *data, uint32_t length,
                 uint32_t longest) {
    if (!fault || length > longest) return;
    uint8_t header[8];
    dt::ByteWriter(header).put(id).put(length);
    const uint8_t key[] = {kind, fault->index};
    DTInfo_Append2Message(fault_store(), key, sizeof key, header, sizeof header, data,
                          static_cast<uint16_t>(length));
}

} // namespace

DTFault *DTFault_Regist(const char *name, DTFaultCallback callback) {
    if (!name || DTList_Length(g_DTFault_List) >= DTFAULT_MAX) return nullptr;
    dt::Owner<DTFault, release> fault(new_fault(name, callback));
    return fault && enlist(fault.get()) ? fault.take() : nullptr;
}

void DTFault_Ignore(DTFault *fault, uint32_t flag) {
    if (fault) fault->ignore = flag;
}

uint32_t DTFault_SetInfo(DTFault *fault, uint32_t word) {
    if (fault) fault->info = word;
    return 0;
}

uint32_t DTFault_SetInitLog(DTFault *fault, uint32_t level, uint32_t unused, const char *text) {
    if (fault) log_line(fault, fault->init_logger, level, unused, text);
    return 0;
}

uint32_t DTFault_SetRunLog(DTFault *fault, uint32_t level, uint32_t unused, const char *text) {
    if (fault) log_line(fault, fault->run_logger, level, unused, text);
    return 0;
}

uint32_t DTFault_ShowInitLogToBuf(DTFault *fault, DTBuf *target) {
    if (fault) DTLogger_ShowToBuf(fault->init_logger, target);
    return 0;
}

uint32_t DTFault_ShowRunLogToBuf(DTFault *fault, DTBuf *target) {
    if (fault) DTLogger_ShowToBuf(fault->run_logger, target);
    return 0;
}

uint32_t DTFault_ShowInitLog(DTFault *fault) { return DTFault_ShowInitLogToBuf(fault, nullptr); }

uint32_t DTFault_ShowRunLog(DTFault *fault) { return DTFault_ShowRunLogToBuf(fault, nullptr); }

uint32_t DTFault_SetRegist(DTFault *fault, uint32_t id, uint32_t value) {
    append_number(fault, regist, id, value);
    return 0;
}

uint32_t DTFault_SetRegist64(DTFault *fault, uint32_t id, uint64_t value) {
    append_number(fault, regist64, id, value);
    return 0;
}

uint32_t DTFault_SetCounter(DTFault *fault, uint32_t id, uint32_t value) {
    append_number(fault, counter, id, value);
    return 0;
}

uint32_t DTFault_SetCounter64(DTFault *fault, uint32_t id, uint64_t value) {
    append_number(fault, counter64, id, value);
    return 0;
}

uint32_t DTFault_SetRegistEx(DTFault *fault, uint32_t id, const void *data, uint32_t length) {
    append_data(fault, regist_ex, id, data, length, DTFAULT_MAX_PACKED);
    return 0;
}

uint32_t DTFault_SetCounterEx(DTFault *fault, uint32_t id, const void *data, uint32_t length) {
    append_data(fault, counter_ex, id, data, length, DTFAULT_MAX_PACKED);
    return 0;
}

uint32_t DTFault_SetValue(DTFault *fault, uint32_t id, const void *data, uint32_t length) {
    append_data(fault, value_data, id, data, length, DTFAULT_MAX_VALUE);
    return 0;
}
