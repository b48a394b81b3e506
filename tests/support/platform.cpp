#include "support/platform.h"

#include <dt/foundation.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

Platform platform;

namespace {

// Blocks as aligned as the default's, or, on request, no more than the library may rely on.
#ifdef DT_TEST_WORD_ALIGNED
constexpr size_t lead = alignof(max_align_t);
#else
constexpr size_t lead = alignof(max_align_t) - 4;
#endif

} // namespace

std::string Platform::console() const {
    std::string all;
    for (const std::string &text : prints) all += text;
    return all;
}

std::string Platform::take_console() {
    const std::string all = console();
    prints.clear();
    return all;
}

uint32_t outstanding(int id) {
    const std::vector<std::string> before = platform.prints;
    DTMem_Show();
    uint32_t bytes = 0;
    for (const std::string &line : platform.prints) {
        int line_id;
        unsigned size;
        if (sscanf(line.c_str(), "  %3d  0x%8x", &line_id, &size) == 2 && line_id == id)
            bytes = size;
    }
    platform.prints = before;
    return bytes;
}

extern "C" {

void *VRK_Malloc(size_t size) {
    ++platform.allocations;
    if (platform.fails()) {
        ++platform.refused;
        return nullptr;
    }
    char *start = static_cast<char *>(malloc(size + lead));
    if (!start) return nullptr;
    ++platform.blocks;
    return start + lead;
}

void VRK_Free(void *address) {
    platform.freeing();
    --platform.blocks;
    free(static_cast<char *>(address) - lead);
}

void VRK_RawPrint(const char *format, ...) {
    char text[20000];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    platform.prints.push_back(text);
}

void VRK_Delay(uint32_t units) { platform.delays.push_back(units); }
}
