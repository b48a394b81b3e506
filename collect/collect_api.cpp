#include "collect/collect_api.h"

#include "base/text.h"
#include "collect/collect_client.h"
#include "collect/collect_getdata.h"
#include "collect/collect_selftest.h"
#include "collect/connection.h"
#include "foundation/DTMem.h"

#include <string.h>

// Weak: see platform/posix/vrk.cpp.
[[gnu::weak]] CollectParam g_collect_param;

namespace {

constexpr uint32_t selftest_command = 3;

static_assert(sizeof(void *) != 4 || sizeof(CollectItem) == 36, "as laid out on the device");

// Serves one datagram.
void pass(int32_t socket, uint8_t identity0, uint8_t identity1) {
    uint32_t command;
    uint32_t port;
    char address[20];
    const int32_t sequence =
        CollectClient_WaitFor(socket, identity0, identity1, &command, address, &port);
    if (sequence < 0) return;
    if (command == selftest_command)
        Collect_SelfTest(address, port, sequence, identity0, identity1);
    else
        Collect_Start(address, port, command, sequence, identity0, identity1);
}

// Behind a closed gate a value is no part of any run.
bool may_put(const CollectItem *item) { return item && dt::values_open; }

// A value arrives in one frame, or in pieces at the end of one message and in those that follow.
template <typename T>
void put_whole(int32_t (*collect)(uint32_t, uint32_t, uint32_t, const T *, int32_t),
               const CollectItem *item, uint32_t key, const char *bytes, int32_t remaining) {
    int32_t taken;
    do {
        const uint32_t index = static_cast<uint32_t>(item->index);
        taken = collect(index, item->section, key, bytes, remaining);
        bytes += taken;
        remaining -= taken;
    } while (remaining > 0 && taken > 0);
}

void put_log(const CollectItem *item, uint32_t key, const DTLogger *logger) {
    if (!may_put(item) || !logger || !logger->info) return;
    uint32_t pos = DTINFO_FIRST;
    const uint8_t *value;
    uint16_t length;
    while (DTInfo_Get(logger->info, nullptr, 0, &pos, nullptr, nullptr, &value, &length)) {
        // Stored texts have no terminator, which a length of 0 would look for.
        const char *text = length != 0 ? reinterpret_cast<const char *>(value) : "";
        put_whole(CollectClient_CollectString, item, key, text, length);
    }
}

int32_t slot_of(const CollectItem *item) {
    int32_t slot = 0;
    while (slot < g_collect_param.count && g_collect_param.items[slot] != item) ++slot;
    return slot;
}

} // namespace

CollectItem *Collect_New(const char *name, CollectCallback start_cb, CollectCallback selftest_cb) {
    CollectParam *registry = &g_collect_param;
    if (!name || !*name || registry->count >= COLLECT_MAX_ITEMS) return nullptr;
    void *memory = DTMem_Malloc(COLLECT_OWNER_ID, sizeof(CollectItem));
    CollectItem *item = static_cast<CollectItem *>(memory);
    if (!item) return nullptr;
    *item = {registry->count, start_cb, selftest_cb, 0, {}};
    dt::copy_text(item->name, name);
    registry->items[registry->count++] = item;
    return item;
}

void Collect_Release(CollectItem *item) {
    CollectParam *registry = &g_collect_param;
    int32_t slot = slot_of(item);
    if (slot == registry->count || item->index >= registry->count) return;
    for (; slot < registry->count - 1; ++slot) {
        registry->items[slot] = registry->items[slot + 1];
        registry->items[slot]->index = slot;
    }
    --registry->count;
    DTMem_Free(COLLECT_OWNER_ID, item);
}

int32_t Collect_Init(uint32_t identity) {
    const int32_t socket = CollectClient_Init();
    if (socket < 0) return socket;
    g_collect_param.logger = DTLogger_New(255);
    for (;;) pass(socket, static_cast<uint8_t>(identity), static_cast<uint8_t>(identity >> 8));
}

void Collect_BeginSection(CollectItem *item, uint32_t section) {
    if (item) item->section = section;
}

void Collect_EndSection(CollectItem *item) { Collect_BeginSection(item, 0); }

void Collect_PutInt(CollectItem *item, uint32_t key, uint32_t value) {
    if (!may_put(item)) return;
    CollectClient_CollectInt(static_cast<uint32_t>(item->index), item->section, key, value);
}

void Collect_PutLong(CollectItem *item, uint32_t key, uint64_t value) {
    if (!may_put(item)) return;
    CollectClient_CollectLong(static_cast<uint32_t>(item->index), item->section, key, value);
}

void Collect_PutString(CollectItem *item, uint32_t key, const char *text, int32_t length) {
    if (!may_put(item) || !text || length < 0) return;
    if (length == 0) length = static_cast<int32_t>(strnlen(text, INT32_MAX));
    put_whole(CollectClient_CollectString, item, key, text, length);
}

void Collect_PutStruct(CollectItem *item, uint32_t key, const void *bytes, int32_t length) {
    if (!may_put(item) || !bytes || length <= 0) return;
    put_whole(CollectClient_CollectBuffer, item, key, static_cast<const char *>(bytes), length);
}

void Collect_PutRunLog(CollectItem *item, uint32_t key, const DTFault *fault) {
    if (fault) put_log(item, key, fault->run_logger);
}

void Collect_PutInitLog(CollectItem *item, uint32_t key, const DTFault *fault) {
    if (fault) put_log(item, key, fault->init_logger);
}

void Collect_ShowLog(void) { DTLogger_ShowInfo(g_collect_param.logger, 1); }
