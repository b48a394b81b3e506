#include "platform/vrk.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

// libdt's callers receive the address 4 bytes behind a raw block; starting the raw block this far
// into an allocation puts that address on malloc's own alignment.
constexpr size_t lead = alignof(max_align_t) - 4;

} // namespace

// Weak, so that a program's own definition also replaces one of a static library.
[[gnu::weak]] void *VRK_Malloc(size_t size) {
    if (size > SIZE_MAX - lead) return nullptr;
    char *start = static_cast<char *>(malloc(size + lead));
    // cppcheck-suppress memleak ; VRK_Free finds the start again
    return start ? start + lead : nullptr;
}

[[gnu::weak]] void VRK_Free(void *address) { free(static_cast<char *>(address) - lead); }

[[gnu::weak]] void VRK_RawPrint(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

[[gnu::weak]] void VRK_Delay(uint32_t units) { usleep(units); }

[[gnu::weak]] int TMB_snprintf(char *buffer, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(buffer, size, format, args);
    va_end(args);
    return length;
}
