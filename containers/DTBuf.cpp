#include "containers/DTBuf.h"

#include "base/owner.h"
#include "foundation/DTMem.h"

#include <string.h>

namespace {

uint8_t *new_area(uint32_t bytes) {
    uint8_t *area = static_cast<uint8_t *>(DTMem_LocalMalloc(bytes));
    if (area) memset(area, 0, bytes);
    return area;
}

// Gives the buffer an area for that many elements; the old area goes to the caller, who may still
// have to copy from it. Null, with the buffer unchanged, when there is no such area.
uint8_t *replace_area(DTBuf *buf, uint64_t elements) {
    if (elements > UINT32_MAX) return nullptr;
    const uint64_t needed = elements * buf->unit;
    const uint64_t bytes = (needed + buf->step - 1) / buf->step * buf->step;
    uint8_t *area = bytes <= UINT32_MAX ? new_area(static_cast<uint32_t>(bytes)) : nullptr;
    if (!area) return nullptr;
    uint8_t *old = buf->data;
    memcpy(area, old, size_t{buf->length} * buf->unit);
    buf->data = area;
    buf->capacity = static_cast<uint32_t>(bytes) / buf->unit;
    return old;
}

int write_at(DTBuf *buf, uint32_t index, const void *from, uint32_t count) {
    const uint64_t end = uint64_t{index} + count;
    const bool grows = end > buf->capacity;
    dt::Owner<void, DTMem_LocalFree> old(grows ? replace_area(buf, end) : nullptr);
    if (grows && !old) return 0;
    memmove(buf->data + size_t{index} * buf->unit, from, size_t{count} * buf->unit);
    return 1;
}

} // namespace

DTBuf *DTBuf_New(uint32_t unit, uint32_t capacity, uint32_t step) {
    const uint64_t bytes = uint64_t{unit} * capacity;
    if (unit == 0 || (capacity == 0 && step == 0) || bytes > UINT32_MAX) return nullptr;
    dt::Owner<void, DTMem_LocalFree> memory(DTMem_LocalMalloc(sizeof(DTBuf)));
    uint8_t *area = memory ? new_area(static_cast<uint32_t>(bytes)) : nullptr;
    if (!area) return nullptr;
    DTBuf *buf = static_cast<DTBuf *>(memory.take());
    *buf = {capacity, step != 0 ? step : capacity, unit, 0, area};
    return buf;
}

void DTBuf_Release(DTBuf *buf) {
    if (!buf) return;
    DTMem_LocalFree(buf->data);
    DTMem_LocalFree(buf);
}

uint32_t DTBuf_Length(const DTBuf *buf) { return buf ? buf->length : 0; }

void DTBuf_Clear(DTBuf *buf) {
    if (!buf) return;
    memset(buf->data, 0, size_t{buf->length} * buf->unit);
    buf->length = 0;
}

uint32_t DTBuf_Get(const DTBuf *buf, uint32_t index, void **result) {
    if (!buf || !result) return 0;
    const bool inside = index < buf->length;
    *result = inside ? buf->data + size_t{index} * buf->unit : nullptr;
    return inside ? buf->length - index + 1 : 0;
}

int DTBuf_Append(DTBuf *buf, const void *from, uint32_t count) {
    if (!buf || !from) return 0;
    if (count == 0)
        count = static_cast<uint32_t>(strnlen(static_cast<const char *>(from), UINT32_MAX));
    if (!write_at(buf, buf->length, from, count)) return 0;
    buf->length += count;
    return 1;
}

int DTBuf_Set(DTBuf *buf, uint32_t index, const void *from, uint32_t count) {
    return buf && from ? write_at(buf, index, from, count) : 0;
}
