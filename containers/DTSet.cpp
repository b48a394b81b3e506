#include "containers/DTSet.h"

#include "base/bytes.h"
#include "foundation/DTMem.h"

#include <string.h>

namespace {

bool holds(const DTSet *set, uint32_t member) { return set && member < set->size; }

template <typename Set> auto *byte_of(Set *set, uint32_t member) {
    return dt::behind(set) + member / 8;
}

} // namespace

static_assert(sizeof(DTSet) == 8, "a set is its bits and 8 bytes");

DTSet *DTSet_New(uint32_t size) {
    if (size == 0 || size > INT32_MAX) return nullptr;
    const uint32_t whole = static_cast<uint32_t>(sizeof(DTSet)) + (size + 7) / 8;
    DTSet *set = static_cast<DTSet *>(DTMem_LocalMalloc(whole));
    if (!set) return nullptr;
    memset(static_cast<void *>(set), 0, whole);
    set->size = size;
    return set;
}

int DTSet_Get(const DTSet *set, uint32_t member) {
    return holds(set, member) ? *byte_of(set, member) >> (member % 8) & 1 : 0;
}

int DTSet_Set(DTSet *set, uint32_t member, int32_t flag) {
    if (!holds(set, member) || DTSet_Get(set, member) == (flag != 0)) return 0;
    *byte_of(set, member) ^= static_cast<uint8_t>(1u << (member % 8));
    set->count += flag != 0 ? 1 : -1;
    return 1;
}

void DTSet_Release(DTSet *set) { DTMem_LocalFree(set); }
