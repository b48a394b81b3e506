#include "support/story.h"

constexpr uint32_t chunk = 0x100004; // with its prefix

TEST(Memory, ShowsWhatIsChargedToTheLowByteOfEachOwner) {
    static uint32_t freeing; // what is still charged while the platform takes a block back
    platform.freeing = [] { freeing = outstanding(133); };
    DTMem_Free(7, DTMem_Malloc(7, 1));
    DTMem_Free(389, DTMem_Malloc(133, 1));
    DTMem_Malloc(389, 10);
    EXPECT_EQ(freeing, 5u);
    for (const uint32_t size : {0x80000u, 4u, 0x80000u}) DTMem_Malloc_Static(255, size);
    EXPECT_EQ(DTMem_Malloc(1, UINT32_MAX - 3), nullptr); // sizes whose bookkeeping wraps
    EXPECT_EQ(DTMem_Malloc_Static(1, UINT32_MAX - 2), nullptr);
    for (const uint32_t fixed : {0u, 1u}) EXPECT_EQ(DTMem_New(UINT32_MAX - 7, fixed), nullptr);
    const std::string expected = DTString_SFormat("   id        size    malloc    free\n"
                                                  "-------------------------------------\n"
                                                  "    0  0x%08x         1       0\n"
                                                  "  133  0x0000000e         2       1\n"
                                                  "  255  0x00200008         2       0\n\n"
                                                  "static memory : left         = 0x00080000\n"
                                                  "static memory : times        = 2\n"
                                                  "static memory : malloc times = 3\n",
                                                  unsigned{sizeof(DTPrint)} + 4); // of the sink
    EXPECT_EQ(console_of(DTMem_Show), expected);
}

TEST(StaticPool, CarvesRoundedPiecesFromChunks) {
    EXPECT_EQ(DTMem_Malloc_Static(9, 0), nullptr);
    char *first = static_cast<char *>(DTMem_Malloc_Static(9, 1));
    EXPECT_EQ(DTMem_Malloc_Static(9, 6), first + 4);
    EXPECT_EQ(DTMem_Malloc_Static(9, 0x7FFF4), first + 12);
    EXPECT_EQ(DTMem_Malloc_Static(9, 0x80000), first + 0x80000); // an exact fit
    DTMem_Malloc_Static(9, 0x80001); // too large once rounded: a block of its own
    EXPECT_EQ(outstanding(9), chunk + 0x80008);
    platform.fail_only(1); // so is what there is no chunk for
    EXPECT_NE(DTMem_Malloc_Static(9, 4), nullptr);
    EXPECT_EQ(outstanding(9), chunk + 0x80008 + 8);
}

TEST(MemoryBlock, CutsEveryAccessAtItsEndAndGrowsWithItsContent) {
    DTMem *block = DTMem_New(10, 0);
    DTMem_memset(block, 0, 0x11, 10);
    DTMem_memset(block, 6, 0xFF, UINT32_MAX);
    char bytes[10] = {};
    EXPECT_EQ(DTMem_memget(block, 4, bytes, 100), 6u);
    EXPECT_STREQ(bytes, "\x11\x11\xFF\xFF\xFF\xFF");
    EXPECT_EQ(DTMem_memcpy(block, 8, "abc", 3), 2u);
    EXPECT_EQ(*static_cast<char *>(DTMem_Get(block, 9)), 'b');
    EXPECT_GT(DTMem_memcmp(block, 8, "aa", 2), 0);
    EXPECT_EQ(DTMem_memcmp(block, 8, "abc", 3) + DTMem_memcmp(block, 10, "", 0), -2);
    EXPECT_EQ(DTMem_Get(block, 10), nullptr);
    EXPECT_EQ(DTMem_memget(block, 10, bytes, 1) + DTMem_memcpy(block, 10, bytes, 1), 0u);
    for (const uint32_t size : {12u, 9u}) { // or shrinks
        block = DTMem_realloc(block, size);
        EXPECT_EQ(block->size, size);
        EXPECT_EQ(DTMem_memcmp(block, 5, "\x11\xFF\xFF\x61", 4), 0);
    }
    DTMem_Release(block);
    EXPECT_EQ(platform.blocks, 0u);
    block = DTMem_New(4, 77); // from the pool
    EXPECT_EQ(DTMem_realloc(block, 8), block);
    DTMem_Release(block);
    EXPECT_EQ(block->size + block->is_static, 81u);
}
