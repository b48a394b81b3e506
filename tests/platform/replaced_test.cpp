// The default platform layer, of which this program replaces one function.
#include <dt/foundation.h>
#include <gtest/gtest.h>

#include <stdarg.h>

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
