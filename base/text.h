// Fixed text fields: always terminated, never overrun.
#ifndef DT_BASE_TEXT_H
#define DT_BASE_TEXT_H

#include <stddef.h>
#include <string.h>

namespace dt {

// Copies a text into a fixed field and clears the rest of it; null counts as the empty text.
// False when the text was cut.
template <size_t N> bool copy_text(char (&field)[N], const char *text) {
    const size_t length = text ? strnlen(text, N) : 0;
    const size_t kept = length < N ? length : N - 1;
    memset(field, 0, N);
    if (kept != 0) memcpy(field, text, kept);
    return length < N;
}

} // namespace dt

#endif
