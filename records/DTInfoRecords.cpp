// The typed info records of a store. DTInfo.cpp keeps the store itself.
#include "records/DTInfo.h"

#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "foundation/DTTime.h"
#include "platform/vrk.h"
#include "records/DTBuffer.h"

#include <stdlib.h>
#include <string.h>

namespace {

// A record's key: the head's fields, then the three strings.
constexpr char head_format[] = "TBhI";
constexpr char key_format[] = "TBhI%dS%dS%dS";

struct String {
    const void *data;
    uint32_t length;

    bool begins_with(const String &filter) const {
        return filter.length <= length && memcmp(data, filter.data, filter.length) == 0;
    }
};

struct InfoRecord {
    uint32_t time;
    uint8_t type;
    uint16_t id;
    uint32_t value;
    String strings[3];
};

struct HexFilter {
    uint8_t bytes[200];
    uint32_t length;

    explicit HexFilter(const char *text) : length(0) {
        for (; text && text[0] && text[1] && length < sizeof bytes; text += 2) {
            const char pair[] = {text[0], text[1], '\0'};
            bytes[length++] = static_cast<uint8_t>(strtol(pair, nullptr, 16));
        }
    }
    String string() const { return {bytes, length}; }
};

struct Selection {
    int32_t id;
    HexFilter begin1;
    HexFilter begin2;
    uint32_t value;
    uint32_t type;

    bool has(const InfoRecord &record) const {
        const bool any_value = value == 0 || (value == UINT32_MAX && record.value != 0);
        return (id == -1 || record.id == static_cast<uint16_t>(id)) &&
               record.strings[0].begins_with(begin1.string()) &&
               record.strings[1].begins_with(begin2.string()) &&
               (any_value || record.value == value) && (type == 0 || record.type == type);
    }
};

bool is_usable(const void *data, int32_t length) { return length == 0 || (data && length > 0); }

// Takes "<decimal>S" from the front of a key.
bool take_length(const char **key, uint32_t *length) {
    char *end;
    if (**key < '0' || **key > '9') return false;
    const unsigned long count = strtoul(*key, &end, 10);
    if (*end != 'S' || count > DTINFO_MAX_VALUE) return false;
    *key = end + 1;
    *length = static_cast<uint32_t>(count);
    return true;
}

bool read_lengths(const char *key, String (&strings)[3]) {
    constexpr size_t head = sizeof head_format - 1;
    if (strncmp(key, head_format, head) != 0) return false;
    key += head;
    for (String &string : strings)
        if (!take_length(&key, &string.length)) return false;
    return *key == '\0';
}

// The strings stay where they are, in the store. False when it is no info record.
bool read_info(const char *key, const uint8_t *value, uint32_t length, InfoRecord *record) {
    if (!read_lengths(key, record->strings)) return false;
    if (length < static_cast<uint32_t>(DTBuffer_GetPackSize(key, nullptr))) return false;
    DTBuffer_UNPack(head_format, value, &record->time, &record->type, &record->id, &record->value);
    value += DTBuffer_GetPackSize(head_format, nullptr);
    for (String &string : record->strings) {
        string.data = value;
        value += string.length;
    }
    return true;
}

// Reads the next info record and its show-mode format; false at the end of the walk.
bool next_info(DTInfo *store, uint32_t *pos, char *format, const uint8_t **value,
               InfoRecord *record) {
    while (DTInfo_GetPack(store, pos, format, value)) {
        // The walk stands just behind the record that it returned.
        const uint8_t *end = static_cast<uint8_t *>(DTMem_Get(store->memory, 0)) + *pos;
        if (read_info(format + 1, *value, static_cast<uint32_t>(end - *value), record)) return true;
    }
    return false;
}

void print(const char *text) { DTPrint_Show(text, 0); }

} // namespace

void DTInfo_AddInfo(DTInfo *store, uint8_t type, uint32_t id, const void *data1, int32_t len1,
                    const void *data2, int32_t len2, const void *data3, int32_t len3,
                    uint32_t value) {
    if (!store || store->ignore) return;
    if (!DTInfo_GetFlag(store, id)) len3 = 0;
    if (!is_usable(data1, len1) || !is_usable(data2, len2) || !is_usable(data3, len3)) return;
    char key[100];
    TMB_snprintf(key, sizeof key, key_format, static_cast<int>(len1), static_cast<int>(len2),
                 static_cast<int>(len3));
    const uint32_t size = static_cast<uint32_t>(DTBuffer_GetPackSize(key, nullptr));
    if (size > DTINFO_MAX_VALUE || !DTInfo_PackPre(store, key, 0, size)) return;
    DTBuffer_Pack(DTMem_Get(store->memory, store->free_addr), key,
                  static_cast<uint32_t>(DTTime_Now()), int{type}, static_cast<int>(id & 0xFFFF),
                  value, data1, data2, data3);
    store->free_addr += size;
    store->free_size -= size;
}

void DTInfo_ShowInfo(DTInfo *store, int32_t id, const char *hex1, const char *hex2, uint32_t value,
                     uint32_t type, uint32_t from, uint32_t to) {
    if (!store) return;
    const Selection selection = {id, HexFilter(hex1), HexFilter(hex2), value, type};
    char format[2 + DTINFO_MAX_KEY];
    const uint8_t *packed;
    InfoRecord record;
    uint32_t count = 0;
    for (uint32_t pos = DTINFO_FIRST; next_info(store, &pos, format, &packed, &record);) {
        if (!selection.has(record)) continue;
        ++count;
        if (count <= from || (to != 0 && count > to)) continue;
        print(DTString_SFormat("index=%d,", static_cast<int>(count)));
        DTBuffer_UNPack(format, packed);
    }
    print(DTString_SFormat("Total count %d", static_cast<int>(count)));
}
