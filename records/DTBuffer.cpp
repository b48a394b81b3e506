#include "records/DTBuffer.h"

#include "base/bytes.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "foundation/DTTime.h"

#include <stdarg.h>
#include <string.h>

namespace {

struct Field {
    char letter;
    uint32_t width;
};

int32_t saturated(uint64_t value) {
    return value < INT32_MAX ? static_cast<int32_t>(value) : INT32_MAX;
}

// Bytes of a field; -1 for a character that is no letter of the language.
int32_t width_of(char letter, int32_t count) {
    switch (letter) {
    case 'B':
    case 'b':
        return 1;
    case 'H':
    case 'h':
        return 2;
    case 'I':
    case 'i':
    case 'T':
        return 4;
    case 's':
    case 'S':
        return count;
    default:
        return -1;
    }
}

// The one reader of format texts.
class Fields {
public:
    explicit Fields(const char *format) : at_(format ? format : "") {}

    bool next(Field *field) {
        int32_t count = 0;
        while (const char c = *at_) {
            ++at_;
            if (c >= '0' && c <= '9') {
                count = saturated(uint64_t{10} * static_cast<uint32_t>(count) +
                                  static_cast<uint32_t>(c - '0'));
                continue;
            }
            const int32_t width = width_of(c, count);
            if (width >= 0) {
                *field = {c, static_cast<uint32_t>(width)};
                return true;
            }
            count = 0;
        }
        return false;
    }

private:
    const char *at_;
};

bool is_text(char letter) { return letter == 's' || letter == 'S'; }

int32_t pack(void *buffer, const char *format, va_list &args) {
    uint8_t *at = static_cast<uint8_t *>(buffer);
    Fields fields(format);
    for (Field field; fields.next(&field); at += field.width) {
        if (is_text(field.letter)) {
            const void *from = va_arg(args, const void *);
            if (field.width != 0) memcpy(at, from, field.width);
        } else if (field.width == 4) {
            dt::store(at, va_arg(args, uint32_t));
        } else if (field.width == 2) {
            dt::store(at, static_cast<uint16_t>(va_arg(args, int)));
        } else {
            dt::store(at, static_cast<uint8_t>(va_arg(args, int)));
        }
    }
    return static_cast<int32_t>(at - static_cast<uint8_t *>(buffer));
}

void extract(const Field &field, const uint8_t *at, va_list &args) {
    char *to = va_arg(args, char *);
    if (is_text(field.letter)) {
        if (field.width != 0) memcpy(to, at, field.width);
        to[field.width] = '\0';
    } else if (field.width == 4) {
        memcpy(to, at, 4);
    } else if (field.width == 2) {
        memcpy(to, at, 2);
    } else {
        *to = static_cast<char>(*at);
    }
}

void print(const char *text) { DTPrint_Show(text, 0); }

// Up to the first zero byte. The sink takes a length of 0 for something else.
void show_text(const uint8_t *at, uint32_t width) {
    const char *text = reinterpret_cast<const char *>(at);
    const size_t length = strnlen(text, width);
    if (length != 0) DTPrint_Show(text, static_cast<int32_t>(length));
    print("<\n");
}

// In pieces of whole lines, so that a field of any length fits the dump's buffer.
void show_dump(const uint8_t *at, uint32_t width) {
    constexpr uint32_t piece = 1024;
    static_assert(piece % 16 == 0, "whole lines");
    for (; width > piece; at += piece, width -= piece) {
        print(DTString_SHFormat(at, piece));
        print("\n");
    }
    print(DTString_SHFormat(at, static_cast<int32_t>(width)));
    print("\n");
}

void show_time(int number, const uint8_t *at) {
    static const char pattern[] = "YYYY/MM/DD HH:MI:SS";
    char text[sizeof pattern + 1];
    DTTime_Format(text, pattern, dt::load<int32_t>(at));
    print(DTString_SFormat("%04d[T]=>%s<\n", number, text));
}

void show(const Field &field, int number, const uint8_t *at) {
    const int width = static_cast<int>(field.width);
    switch (field.letter) {
    case 'B':
        return print(DTString_SFormat("%04d[B]=>0x%02X<\n", number, *at));
    case 'b':
        return print(DTString_SFormat("%04d[B]=>%d<\n", number, *at));
    case 'H': // widened with its sign: 0x8000 shows as 0xFFFF8000
        return print(DTString_SFormat("%04d[H]=>0x%04X<\n", number,
                                      static_cast<unsigned>(dt::load<int16_t>(at))));
    case 'h':
        return print(DTString_SFormat("%04d[h]=>%d<\n", number, dt::load<int16_t>(at)));
    case 'I':
        return print(DTString_SFormat("%04d[I]=>0x%08X<\n", number, dt::load<uint32_t>(at)));
    case 'i':
        return print(DTString_SFormat("%04d[i]=>%d<\n", number, dt::load<int32_t>(at)));
    case 'T':
        return show_time(number, at);
    case 's':
        print(DTString_SFormat("%04d[%ds]=>", number, width));
        return show_text(at, field.width);
    default:
        print(DTString_SFormat("%04d[%dS]=>\n", number, width));
        return show_dump(at, field.width);
    }
}

int32_t unpack(const char *format, const void *buffer, uint32_t length, va_list &args) {
    if (!format) return 0;
    const bool shows = *format == '*';
    if (shows) {
        print("format:");
        DTPrint_Puts(format, 0);
    }
    if (!buffer) length = 0;
    const uint8_t *at = static_cast<const uint8_t *>(buffer ? buffer : "");
    int32_t number = 0;
    Fields fields(shows ? format + 1 : format);
    for (Field field; fields.next(&field); at += field.width) {
        if (field.width > length) return buffer ? -1 : number;
        length -= field.width;
        ++number;
        if (shows)
            show(field, number, at);
        else
            extract(field, at, args);
    }
    return number;
}

uint64_t packed_size(const char *format, int32_t *field_count) {
    uint64_t size = 0;
    int32_t count = 0;
    Fields fields(format);
    for (Field field; fields.next(&field); ++count) size += field.width;
    if (field_count) *field_count = count;
    return size;
}

} // namespace

int32_t DTBuffer_GetPackSize(const char *format, int32_t *field_count) {
    return saturated(packed_size(format, field_count));
}

int32_t DTBuffer_Pack(void *buffer, const char *format, ...) {
    if (!buffer) return 0;
    va_list args;
    va_start(args, format);
    const int32_t written = pack(buffer, format, args);
    va_end(args);
    return written;
}

int32_t DTBuffer_PackN(void *buffer, uint32_t size, const char *format, ...) {
    if (!buffer) return 0;
    const uint64_t needed = packed_size(format, nullptr);
    if (needed > size || needed > INT32_MAX) return -1;
    va_list args;
    va_start(args, format);
    const int32_t written = pack(buffer, format, args);
    va_end(args);
    return written;
}

int32_t DTBuffer_UNPack(const char *format, const void *buffer, ...) {
    va_list args;
    va_start(args, buffer);
    const int32_t fields = unpack(format, buffer, UINT32_MAX, args);
    va_end(args);
    return fields;
}

int32_t DTBuffer_UNPackN(const char *format, const void *buffer, uint32_t length, ...) {
    va_list args;
    va_start(args, length);
    const int32_t fields = unpack(format, buffer, length, args);
    va_end(args);
    return fields;
}
