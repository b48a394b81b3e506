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
    if (!format || vsnprintf(out, size < INT_MAX ? size : INT_MAX, format, args) < 0) out[0] = '\0';
    return out;
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
    static const char digits[] = "0123456789ABCDEF";
    if (!out || size == 0) return out;
    const uint8_t *byte = static_cast<const uint8_t *>(bytes);
    char *to = out;
    size_t room = size - 1;
    for (int32_t i = 0; byte && i < count; ++i) {
        const size_t width = i != 0 && i % 16 == 0 ? 4 : 3;
        if (room < width) break;
        if (width == 4) *to++ = '\n';
        *to++ = digits[byte[i] >> 4];
        *to++ = digits[byte[i] & 15];
        *to++ = ' ';
        room -= width;
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
