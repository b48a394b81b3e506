// The default platform layer, of which this program replaces one function.
#include <dt/foundation.h>
#include <gtest/gtest.h>

#include <stdarg.h>
#include <string.h>

namespace {
std::string printed;
}

extern "C" void VRK_RawPrint(const char *, ...) { printed = "replaced"; }

TEST(Platform, AProgramsOwnFunctionIsUsedAndTheOtherDefaultsStay) {
    DTPrint_Puts("hello", 0);
    EXPECT_EQ(printed, "replaced");
}

TEST(Platform, DefaultMemoryIsAlignedForAnyType) {
    void *block = DTMem_Malloc(1, 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(max_align_t), 0u);
    DTMem_Free(1, block);
    EXPECT_EQ(VRK_Malloc(SIZE_MAX), nullptr);
}

TEST(Platform, BoundedFormattingReportsTheWholeLength) {
    char text[4];
    EXPECT_EQ(TMB_snprintf(text, sizeof text, "%d", 12345), 5);
    EXPECT_STREQ(text, "123");
}

// The C library's checked calls would end the process.
TEST(Platform, AFormatInWritableMemoryMayStoreALength) {
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    char format[8], text[8], line[16];
    int stored = 0, stored_here = 0, stored_there = 0;
    strcpy(format, "ab%nc");
    EXPECT_EQ(TMB_snprintf(text, sizeof text, format, &stored), 3);
    DTString_Format(line, format, &stored_here);
    EXPECT_STREQ(line, "abc");
    EXPECT_STREQ(DTString_SFormat(format, &stored_there), "abc");
    EXPECT_EQ(stored + stored_here + stored_there, 6);
}
