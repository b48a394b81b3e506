/* Formatting into a caller's buffer or into a shared one, hex dumps, splitting.
 *
 * The shared buffers hold one result each: use it (print it, copy it) before the next call of the
 * same function, and never hand it to that function as an argument.
 */
#ifndef DT_FOUNDATION_DTSTRING_H
#define DT_FOUNDATION_DTSTRING_H

#include "../platform/vrk.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Formats as printf does into out and returns out. The plain form trusts that the whole result
 * fits; where the compiler knows the size of out (see the end of this file) it becomes the sized
 * form, which writes at most size bytes, cut at the end and always terminated. A null out and a
 * size of 0 are answered with out, a null format with the empty text; likewise below. A conversion
 * that fails ends the text: what was written before it stays.
 */
char *DTString_Format(char *out, const char *format, ...) DT_PRINTF_LIKE(2, 3);
char *DTString_FormatN(char *out, size_t size, const char *format, ...) DT_PRINTF_LIKE(3, 4);

/* Formats into the shared text buffer and returns it; cut after 999 characters. */
char *DTString_SFormat(const char *format, ...) DT_PRINTF_LIKE(1, 2);

/* Writes count bytes as hex into out and returns out: two upper-case digits and a blank per byte, a
 * line break behind every 16th that is not the last. count x 3 + (count - 1) / 16 characters and a
 * terminator; the empty text for a count of 0 or less or null bytes. The sized form stops before
 * the first byte that would not fit into size.
 */
char *DTString_HFormat(char *out, const void *bytes, int32_t count);
char *DTString_HFormatN(char *out, size_t size, const void *bytes, int32_t count);

/* The hex dump in the shared dump buffer, which holds 3265 bytes; what is beyond is left out. */
char *DTString_SHFormat(const void *bytes, int32_t count);

/* Splits text in place at each separator and stores the address of each piece; returns the number
 * of pieces, 0 for a null argument.
 *
 * pieces  room for max addresses, or for as many pieces as the text can hold with max 0.
 * max     0: no limit; otherwise the last piece is the whole rest of the text. Below 0 means 1.
 *
 * Only the first character of a separator is overwritten, with a terminator. The first character of
 * a piece is never the start of a separator: "a,,b" splits into "a" and ",b". A separator at the
 * text's end gives an empty last piece. An empty separator splits nothing: one piece.
 */
int32_t DTString_Split(char *text, const char *separator, char **pieces, int32_t max);

/* Entry points kept for the interface's sake: the text is returned unchanged. */
char *DTString_LTrim(char *text, uint32_t unused);
char *DTString_RTrim(char *text, uint32_t unused);
char *DTString_Trim(char *text, uint32_t unused);

#ifdef __cplusplus
}
#endif

/* A destination of known size gets the form that respects it. */
#if defined(__GNUC__) && !defined(DT_NO_SIZED_FORMS)
#define DTString_Format(out, ...)                                                                  \
    DTString_FormatN((out), __builtin_object_size((out), 1), __VA_ARGS__)
#define DTString_HFormat(out, bytes, count)                                                        \
    DTString_HFormatN((out), __builtin_object_size((out), 1), (bytes), (count))
#endif

#endif
