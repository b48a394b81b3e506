// Fixed text fields: always terminated, never overrun. Numbers as text.
#ifndef DT_BASE_TEXT_H
#define DT_BASE_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace dt {

// Copies a text into a fixed field and clears the rest of it; null counts as the empty text. The
// text may lie in the field itself. False when it was cut.
template <size_t N> bool copy_text(char (&field)[N], const char *text) {
    const size_t length = text ? strnlen(text, N) : 0;
    const size_t kept = length < N ? length : N - 1;
    if (kept != 0) memmove(field, text, kept);
    memset(field + kept, 0, N - kept);
    return length < N;
}

// As "%0*d" would, sign included in the width. A year may lie just beyond the range of an int.
inline char *put_number(char *out, int64_t value, int digits) {
    char reversed[12];
    int length = 0;
    uint32_t rest = static_cast<uint32_t>(value < 0 ? -value : value);
    for (; rest != 0 || length == 0; rest /= 10)
        reversed[length++] = static_cast<char>('0' + rest % 10);
    const int sign = value < 0 ? 1 : 0;
    while (length < digits - sign) reversed[length++] = '0';
    if (sign) reversed[length++] = '-';
    while (length > 0) *out++ = reversed[--length];
    return out;
}

} // namespace dt

#endif
