#include "support/platform.h"

#include <dt/foundation.h>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr uint32_t chunk = 0x100004; // with its prefix

std::string show() {
    platform.take_console();
    DTMem_Show();
    return platform.take_console();
}

} // namespace

TEST(Memory, ChargesEachBlockToTheLowByteOfItsOwner) {
    void *five = DTMem_Malloc(261, 10);
    ASSERT_NE(five, nullptr);
    EXPECT_THAT(show(), HasSubstr("    5  0x0000000e         1       0\n"));
    DTMem_Free(5, nullptr);
    DTMem_Free(5, five);
    EXPECT_THAT(show(), Not(HasSubstr("    5  0x")));
    EXPECT_EQ(platform.blocks, 1u); // the console's sink
}

TEST(Memory, ShowPrintsTheWholeTableAndCountsTheSinkItCreates) {
    DTMem_Free(7, DTMem_Malloc(7, 1));
    ASSERT_NE(DTMem_Malloc(255, 0), nullptr);
    char sink[60];
    snprintf(sink, sizeof sink, "    0  0x%08x         1       0\n", unsigned{sizeof(DTPrint)} + 4);
    EXPECT_EQ(show(), std::string("   id        size    malloc    free\n"
                                  "-------------------------------------\n") +
                          sink +
                          "  255  0x00000004         1       0\n"
                          "\n"
                          "static memory : left         = 0x00000000\n"
                          "static memory : times        = 0\n"
                          "static memory : malloc times = 0\n");
}

TEST(Memory, RefusesSizesWhoseBookkeepingWraps) {
    EXPECT_EQ(DTMem_Malloc(1, UINT32_MAX - 3), nullptr);
    EXPECT_EQ(DTMem_New(UINT32_MAX - 7, 0), nullptr);
    EXPECT_EQ(DTMem_New(UINT32_MAX - 7, 1), nullptr);
    EXPECT_EQ(DTMem_Malloc_Static(1, UINT32_MAX - 2), nullptr);
    EXPECT_EQ(outstanding(0), sizeof(DTPrint) + 4);
    EXPECT_EQ(outstanding(1), 0u);
}

TEST(StaticPool, CarvesRoundedPiecesFromOneChunk) {
    char *first = static_cast<char *>(DTMem_Malloc_Static(9, 1));
    EXPECT_EQ(static_cast<char *>(DTMem_Malloc_Static(9, 6)), first + 4);
    EXPECT_EQ(static_cast<char *>(DTMem_Malloc_Static(9, 8)), first + 12);
    EXPECT_EQ(outstanding(9), chunk);
    EXPECT_THAT(show(), HasSubstr("left         = 0x000fffec\nstatic memory : times        = 1\n"
                                  "static memory : malloc times = 3\n"));
    EXPECT_EQ(DTMem_Malloc_Static(9, 0), nullptr);
}

TEST(StaticPool, LargestPieceIsJudgedByTheRoundedSize) {
    ASSERT_NE(DTMem_Malloc_Static(9, 0x80001), nullptr);
    EXPECT_EQ(outstanding(9), 0x80008u); // a block of its own, rounded to 0x80004
    EXPECT_THAT(show(), HasSubstr("times        = 0"));
    ASSERT_NE(DTMem_Malloc_Static(9, 0x7FFFF), nullptr);
    ASSERT_NE(DTMem_Malloc_Static(9, 0x80000), nullptr); // an exact fit
    EXPECT_THAT(show(), HasSubstr("left         = 0x00000000\nstatic memory : times        = 1\n"));
    ASSERT_NE(DTMem_Malloc_Static(9, 4), nullptr);
    EXPECT_THAT(show(), HasSubstr("left         = 0x000ffffc\nstatic memory : times        = 2\n"));
    EXPECT_EQ(outstanding(9), 0x80008u + 2 * chunk);
}

TEST(StaticPool, WithoutAChunkRequestsBecomeBlocksOfTheirOwn) {
    ASSERT_NE(DTMem_Malloc_Static(9, 0x40000), nullptr);
    ASSERT_NE(DTMem_Malloc_Static(9, 0x80000), nullptr);
    const std::string before = show();
    ASSERT_THAT(before, HasSubstr("left         = 0x00040000"));
    // The chunk cannot be had; then neither can the block itself.
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTMem_Malloc_Static(9, 0x80000), nullptr);
    EXPECT_EQ(show(), before);
    // There is no current chunk any more, although the old one had room for this.
    EXPECT_EQ(DTMem_Malloc_Static(9, 4), nullptr);
    platform.allocations_work();
    ASSERT_NE(DTMem_Malloc_Static(9, 4), nullptr);
    EXPECT_THAT(show(), HasSubstr("left         = 0x000ffffc\nstatic memory : times        = 2\n"
                                  "static memory : malloc times = 3\n"));
}

TEST(MemoryBlock, CutsEveryAccessAtItsEnd) {
    DTMem *block = DTMem_New(10, 0);
    DTMem_memset(block, 0, 0x11, 10);
    DTMem_memset(block, 6, 0xFF, UINT32_MAX);
    uint8_t bytes[10] = {};
    EXPECT_EQ(DTMem_memget(block, 4, bytes, 100), 6u);
    EXPECT_EQ(memcmp(bytes, "\x11\x11\xFF\xFF\xFF\xFF", 6), 0);
    EXPECT_EQ(DTMem_memcpy(block, 8, "abc", 3), 2u);
    EXPECT_EQ(*static_cast<char *>(DTMem_Get(block, 9)), 'b');
    EXPECT_EQ(DTMem_Get(block, 10), nullptr);
    EXPECT_EQ(DTMem_memcmp(block, 8, "ab", 2), 0);
    EXPECT_GT(DTMem_memcmp(block, 8, "aa", 2), 0);
    EXPECT_EQ(DTMem_memcmp(block, 8, "abc", 3), -1); // past the end
    EXPECT_EQ(DTMem_memcmp(block, 10, "", 0), -1);
    EXPECT_EQ(DTMem_memget(block, 10, bytes, 1), 0u);
    EXPECT_EQ(DTMem_memcpy(block, 10, bytes, 1), 0u);
    DTMem_Release(block);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(MemoryBlock, NullIsAnEmptyBlock) {
    char byte = 0;
    DTMem_memset(nullptr, 0, 1, 1);
    EXPECT_EQ(DTMem_Get(nullptr, 0), nullptr);
    EXPECT_EQ(DTMem_memcmp(nullptr, 0, &byte, 1), -1);
    EXPECT_EQ(DTMem_memget(nullptr, 0, &byte, 1), 0u);
    EXPECT_EQ(DTMem_memcpy(nullptr, 0, &byte, 1), 0u);
    EXPECT_EQ(DTMem_realloc(nullptr, 8), nullptr);
    DTMem_Release(nullptr);
}

TEST(MemoryBlock, GrowsWithItsContentOrStaysWhole) {
    DTMem *block = DTMem_New(4, 0);
    DTMem_memcpy(block, 0, "abcd", 4);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTMem_realloc(block, 8), nullptr);
    EXPECT_EQ(DTMem_memcmp(block, 0, "abcd", 4), 0);
    platform.allocations_work();
    block = DTMem_realloc(block, 8);
    EXPECT_EQ(block->size, 8u);
    EXPECT_EQ(DTMem_memcmp(block, 0, "abcd", 4), 0);
    block = DTMem_realloc(block, 2);
    EXPECT_EQ(DTMem_memcmp(block, 0, "ab", 2), 0);
    EXPECT_EQ(outstanding(0), 2 + 8 + 4 + sizeof(DTPrint) + 4);
}

TEST(MemoryBlock, StaticOnesStay) {
    DTMem *block = DTMem_New(4, 77);
    EXPECT_EQ(block->is_static, 77u);
    EXPECT_EQ(DTMem_realloc(block, 8), block);
    DTMem_Release(block);
    EXPECT_EQ(block->size, 4u);
    EXPECT_EQ(platform.blocks, 1u); // the chunk
}
