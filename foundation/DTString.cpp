#define DT_NO_SIZED_FORMS // the plain forms are defined here
#include "foundation/DTString.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

char sg_SBuffer[1000];
char sg_SHBuffer[10000];

// A size beyond INT_MAX says that the room is unknown; vsnprintf refuses to be told so.
__attribute__((format(printf, 3, 0))) char *format_into(char *out, size_t size, const char *format,
                                                        va_list args) {
    if (!out || size == 0) return out;
    out[0] = '\0';
    if (format) vsnprintf(out, size < INT_MAX ? size : INT_MAX, format, args);
    return out;
}

constexpr size_t dump_line = 16; // bytes shown in a line of a dump

// How many bytes a dump can show in a room, terminator included: three characters each, and the
// terminator or a line's end behind every line.
size_t dumped_bytes(size_t room) {
    constexpr size_t line = 3 * dump_line + 1;
    const size_t rest = room % line;
    return room / line * dump_line + (rest != 0 ? (rest - 1) / 3 : 0);
}

char *dump(char *to, const uint8_t *bytes, size_t count) {
    static const char digits[] = "0123456789ABCDEF";
    for (size_t i = 0; i < count; ++i) {
        *to++ = digits[bytes[i] >> 4];
        *to++ = digits[bytes[i] & 15];
        *to++ = ' ';
    }
    return to;
}

} // namespace

char *DTString_Format(char *out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    format_into(out, SIZE_MAX, format, args);
    va_end(args);
    return out;
}

char *DTString_FormatN(char *out, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    format_into(out, size, format, args);
    va_end(args);
    return out;
}

char *DTString_SFormat(const char *format, ...) {
    va_list args;
    va_start(args, format);
    format_into(sg_SBuffer, sizeof sg_SBuffer, format, args);
    va_end(args);
    return sg_SBuffer;
}

char *DTString_HFormat(char *out, const void *bytes, int32_t count) {
    return DTString_HFormatN(out, SIZE_MAX, bytes, count);
}

char *DTString_HFormatN(char *out, size_t size, const void *bytes, int32_t count) {
    if (!out || size == 0) return out;
    const uint8_t *byte = static_cast<const uint8_t *>(bytes);
    size_t left = byte && count > 0 ? static_cast<size_t>(count) : 0;
    if (left > dumped_bytes(size)) left = dumped_bytes(size);
    char *to = out;
    while (left > 0) {
        const size_t in_line = left < dump_line ? left : dump_line;
        to = dump(to, byte, in_line);
        byte += in_line;
        left -= in_line;
        if (left != 0) *to++ = '\n';
    }
    *to = '\0';
    return out;
}

char *DTString_SHFormat(const void *bytes, int32_t count) {
    return DTString_HFormatN(sg_SHBuffer, sizeof sg_SHBuffer, bytes, count);
}

int32_t DTString_Split(char *text, const char *separator, char **pieces, int32_t max) {
    if (!text || !separator || !pieces) return 0;
    const size_t width = strlen(separator);
    pieces[0] = text;
    if (*text == '\0' || width == 0 || (max != 0 && max <= 1)) return 1;
    int32_t count = 1;
    do {
        if (strncmp(text, separator, width) == 0) {
            *text = '\0';
            text += width;
            pieces[count++] = text;
            if (*text == '\0') break;
        }
        ++text;
    } while (count != max && *text != '\0');
    return count;
}

char *DTString_LTrim(char *text, uint32_t) { return text; }

char *DTString_RTrim(char *text, uint32_t) { return text; }

char *DTString_Trim(char *text, uint32_t unused) {
    DTString_LTrim(text, unused);
    return DTString_RTrim(text, unused);
}
