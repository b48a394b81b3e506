#include "timer/DTTimer.h"

#include "base/nodes.h"
#include "base/owner.h"
#include "foundation/DTMem.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "foundation/DTTime.h"

// Weak: see platform/posix/vrk.cpp.
[[gnu::weak]] DTList *g_DTTimer_List;

namespace {

static_assert(sizeof(void *) != 4 || sizeof(DTTimer) == 20, "five words on the device");

constexpr uint32_t rest = 100; // milliseconds between two passes

uint32_t milliseconds() { return DTTime_GetUTime() / 1000; }

DTTimer *timer_of(uintptr_t value) { return reinterpret_cast<DTTimer *>(value); }

bool list_ready() {
    if (!g_DTTimer_List) g_DTTimer_List = DTList_New(0, dt::release_value<DTMem_LocalFree>);
    return g_DTTimer_List != nullptr;
}

bool is_due(const DTTimer *timer, uint32_t now) {
    return timer && timer->callback && timer->status != 0 && now - timer->last >= timer->interval;
}

void run(DTTimer *timer, uint32_t now) {
    if (timer->callback(timer) == 0) timer->status = 0;
    timer->last = now;
    timer->times = static_cast<int32_t>(static_cast<uint32_t>(timer->times) + 1); // may wrap
}

// By position: a callback may change the list. What it registers is left to the next pass.
void pass(uint32_t now) {
    const int32_t count = DTList_Length(g_DTTimer_List);
    for (int32_t i = 0; i < count; ++i) {
        DTTimer *timer = timer_of(DTList_Get(g_DTTimer_List, i));
        if (is_due(timer, now)) run(timer, now);
    }
}

} // namespace

int DTTimer_Regist(DTTimerCallback callback, uint32_t interval) {
    if (!list_ready()) return 0;
    dt::Owner<void, DTMem_LocalFree> memory(DTMem_LocalMalloc(sizeof(DTTimer)));
    if (!memory) return 0;
    DTTimer *timer = static_cast<DTTimer *>(memory.get());
    *timer = {callback, interval, milliseconds(), 1, 0};
    if (!DTList_Append(g_DTTimer_List, reinterpret_cast<uintptr_t>(timer))) return 0;
    memory.take();
    return 1;
}

void DTTimer_Loop(void) {
    for (;;) {
        pass(milliseconds());
        DTTime_Sleep(rest);
    }
}

void DTTimer_Show(void) {
    DTPrint_Show(DTString_SFormat("current tm=%d\n", static_cast<int>(milliseconds())), 0);
    for (const uintptr_t value : dt::nodes(g_DTTimer_List)) {
        const DTTimer *timer = timer_of(value);
        if (!timer || !timer->callback) continue;
        DTPrint_Show(
            DTString_SFormat("last=%d,interval=%d,status=%d,times=%d\n",
                             static_cast<int>(timer->last), static_cast<int>(timer->interval),
                             static_cast<int>(timer->status), static_cast<int>(timer->times)),
            0);
    }
}
