// The worked platform layer of docs/porting.md, under the library.
#include "examples/platform.h"

#include <dt/dt.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

std::string read_line(int terminal) {
    std::string text;
    char character;
    pollfd ready = {terminal, POLLIN, 0};
    while (poll(&ready, 1, 1000) == 1 && read(terminal, &character, 1) == 1) {
        text += character;
        if (character == '\n') break;
    }
    return text;
}

} // namespace

TEST(PortedLayer, MemoryIsAlignedCountedAndEndsAtTheBudget) {
    const uint32_t third = PLATFORM_BUDGET / 3;
    void *first = DTMem_Malloc(1, third), *second = DTMem_Malloc(1, third);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % alignof(max_align_t), 0u);
    EXPECT_EQ(platform_memory_used(), 2 * (third + 4));
    EXPECT_EQ(DTMem_Malloc(1, third), nullptr);
    EXPECT_EQ(VRK_Malloc(SIZE_MAX), nullptr);
    DTMem_Free(1, first);
    DTMem_Free(1, second);
    EXPECT_EQ(platform_memory_used(), 0u);
    void *whole = DTMem_Malloc(1, PLATFORM_BUDGET - 4);
    EXPECT_NE(whole, nullptr);
    DTMem_Free(1, whole);
}

TEST(PortedLayer, TheConsoleIsASerialLineOrStaysAsItWas) {
    EXPECT_EQ(platform_open_console("/no/such/line"), 0);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    ASSERT_EQ(platform_open_console(ptsname(terminal)), 1);
    DTPrint_Puts("hello", 0);
    EXPECT_EQ(read_line(terminal), "hello\r\n");
    VRK_Delay(1);
    close(terminal);
}
