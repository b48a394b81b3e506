#include "support/story.h"

TEST(Set, KeepsOneBitForEachMember) {
    DTSet *set = DTSet_New(10);
    const uint8_t *bits = reinterpret_cast<const uint8_t *>(set + 1);
    EXPECT_EQ(bits[-12], 10); // the set takes so many bytes
    for (const uint32_t member : {0u, 7u, 8u, 9u}) EXPECT_EQ(DTSet_Set(set, member, -1), 1);
    EXPECT_EQ(DTSet_Set(set, 7, 2), 0); // is one
    EXPECT_EQ(bits[0] + 0x100 * bits[1], 0x0381);
    for (const int changed : {1, 0}) EXPECT_EQ(DTSet_Set(set, 7, 0), changed);
    for (uint32_t member = 0; member < 12; ++member)
        EXPECT_EQ(DTSet_Get(set, member), member == 0 || member == 8 || member == 9) << member;
    EXPECT_EQ(set->count, 3);
    DTSet_Release(set);
    EXPECT_EQ(platform.blocks, 0u);
    set = DTSet_New(8); // one byte of bits: what lies behind it is not the set's
    EXPECT_EQ(DTSet_Set(set, 8, 1) + DTSet_Set(set, UINT32_MAX, 1) + DTSet_Get(set, 8), 0);
    for (const uint32_t size : {0u, 0x80000000u, UINT32_MAX}) EXPECT_EQ(DTSet_New(size), nullptr);
    EXPECT_EQ(platform.allocations, 2u);
}
