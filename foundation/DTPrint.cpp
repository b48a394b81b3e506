#include "foundation/DTPrint.h"

#include "foundation/DTMem.h"
#include "platform/vrk.h"

#include <string.h>

namespace {

DTPrint *self_print;
char self_buffer[1000];

static_assert(sizeof(void *) != 4 || sizeof(DTPrint) == 16, "four words on the device");

void to_console(const DTPrint *print, const char *text) {
    if (print->print) VRK_RawPrint("%s", text);
}

// A full buffer starts again; with output off what it held is dropped.
void empty(DTPrint *print) {
    print->buffer[print->length] = '\0';
    if (print->length > 0) to_console(print, print->buffer);
    print->length = 0;
}

// Where the next characters go and how many of count fit there, after emptying a full buffer.
char *room_for(DTPrint *print, int32_t *count) {
    if (print->length >= print->capacity - 1) empty(print);
    const int32_t room = print->capacity - 1 - print->length;
    if (*count > room) *count = room;
    return print->buffer + print->length;
}

void append(DTPrint *print, const char *text, int32_t length) {
    while (length > 0) {
        int32_t piece = length;
        char *to = room_for(print, &piece);
        memcpy(to, text, static_cast<size_t>(piece));
        print->length += piece;
        text += piece;
        length -= piece;
    }
}

int32_t text_length(const char *text) {
    const size_t length = strnlen(text, INT32_MAX);
    return static_cast<int32_t>(length);
}

bool ready() {
    if (!self_print) self_print = DTPrint_New(self_buffer, sizeof self_buffer);
    return self_print != nullptr;
}

} // namespace

DTPrint *DTPrint_New(char *buffer, int32_t capacity) {
    if (!buffer || capacity < 2) return nullptr;
    DTPrint *print = static_cast<DTPrint *>(DTMem_LocalMalloc(sizeof(DTPrint)));
    if (!print) return nullptr;
    *print = {buffer, capacity, 0, 1};
    buffer[0] = '\0';
    return print;
}

void DTPrint_Release(DTPrint *print) {
    DTPrint_Flush(print);
    DTMem_LocalFree(print);
}

void DTPrint_SetPrint(DTPrint *print, int32_t flag) {
    if (print) print->print = flag;
}

void DTPrint_Flush(DTPrint *print) {
    if (print && print->print && print->length > 0) empty(print);
}

void DTPrint_PrintCh(DTPrint *print, int character, int32_t count) {
    if (!print) return;
    while (count > 0) {
        int32_t piece = count;
        char *to = room_for(print, &piece);
        memset(to, character & 0xFF, static_cast<size_t>(piece));
        print->length += piece;
        count -= piece;
    }
}

void DTPrint_Print(DTPrint *print, const char *text, int32_t count) {
    if (!print || !text || !*text) return;
    const int32_t length = text_length(text);
    for (; count > 0; --count) {
        if (length >= print->capacity - print->length) empty(print);
        if (length < print->capacity) {
            append(print, text, length);
        } else {
            print->buffer[0] = '\0';
            to_console(print, text);
        }
    }
}

void DTPrint_Show(const char *text, int32_t length) {
    if (!text || !ready()) return;
    if (length == 0) length = text_length(text);
    while (length > 0) {
        const char *end =
            static_cast<const char *>(memchr(text, '\n', static_cast<size_t>(length)));
        const int32_t piece = end ? static_cast<int32_t>(end - text) + 1 : length;
        append(self_print, text, piece);
        if (end) DTPrint_Flush(self_print);
        text += piece;
        length -= piece;
    }
}

void DTPrint_Puts(const char *text, int32_t length) {
    DTPrint_Show(text, length);
    DTPrint_Show("\n", 1);
}

void DTPrint_ShowEx(const char *text, int32_t length) {
    DTPrint_Show(text, length);
    DTPrint_Flush(self_print);
}
