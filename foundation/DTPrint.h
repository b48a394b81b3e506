/* The one path to the console: text is collected in a buffer and handed to VRK_RawPrint in whole
 * lines or large pieces.
 *
 * DTPrint_Show, DTPrint_Puts and DTPrint_ShowEx write to the default sink of the process, which
 * holds 999 characters and sends each line out as soon as its line break is written. Private print
 * objects collect text in a buffer of the caller's. Operations on a null object do nothing, as do
 * null and empty texts and counts of 0 or less.
 */
#ifndef DT_FOUNDATION_DTPRINT_H
#define DT_FOUNDATION_DTPRINT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Text on its way to the console. */
typedef struct DTPrint {
    char *buffer;     /* the caller's; no terminator is kept behind the text while it grows */
    int32_t capacity; /* bytes in buffer; at most capacity - 1 characters are held */
    int32_t length;   /* characters now held */
    int32_t print;    /* 0: nothing reaches the console, a buffer that fills up starts again */
} DTPrint;

/* Returns a print object over capacity bytes at buffer, empty and with console output on, or null
 * without memory, without a buffer or with a capacity below 2. The buffer must outlive the object.
 */
DTPrint *DTPrint_New(char *buffer, int32_t capacity);

/* Flushes and frees the object; the buffer stays with its owner. Null is ignored. */
void DTPrint_Release(DTPrint *print);

/* Switches console output on (flag not 0) or off. */
void DTPrint_SetPrint(DTPrint *print, int32_t flag);

/* Sends the held text to the console and empties the buffer; with output off nothing happens. */
void DTPrint_Flush(DTPrint *print);

/* Appends the low 8 bits of character count times; a full buffer is emptied first. */
void DTPrint_PrintCh(DTPrint *print, int character, int32_t count);

/* Appends the whole text count times. A text is never split: when it does not fit behind what is
 * held the buffer is emptied first, and one that can never fit goes to the console directly and
 * leaves the empty text in the buffer.
 */
void DTPrint_Print(DTPrint *print, const char *text, int32_t count);

/* Writes length characters of text to the default sink; 0 means up to the text's terminator, below
 * 0 nothing. With a length, zero bytes are stored like other characters, and the console stops at
 * them. Text behind the last line break waits for the next one. Without memory for the sink
 * nothing is printed, and the next call tries again.
 */
void DTPrint_Show(const char *text, int32_t length);

/* DTPrint_Show and a line break. */
void DTPrint_Puts(const char *text, int32_t length);

/* DTPrint_Show, and everything held goes out at once. */
void DTPrint_ShowEx(const char *text, int32_t length);

#ifdef __cplusplus
}
#endif

#endif
