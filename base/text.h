// Fixed text fields: always terminated, never overrun.
#ifndef DT_BASE_TEXT_H
#define DT_BASE_TEXT_H

#include <stddef.h>
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

} // namespace dt

#endif
