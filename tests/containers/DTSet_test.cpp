#include "support/platform.h"

#include <dt/containers.h>
#include <dt/foundation.h>
#include <gtest/gtest.h>

namespace {

const uint8_t *bits(const DTSet *set) { return reinterpret_cast<const uint8_t *>(set + 1); }

} // namespace

TEST(Set, CountsWhatChanges) {
    DTSet *set = DTSet_New(10);
    EXPECT_EQ(set->count, 0);
    EXPECT_EQ(DTSet_Set(set, 3, 0), 0);
    EXPECT_EQ(DTSet_Set(set, 3, -1), 1);
    EXPECT_EQ(DTSet_Set(set, 3, 2), 0);
    EXPECT_EQ(set->count, 1);
    EXPECT_EQ(DTSet_Get(set, 3), 1);
    EXPECT_EQ(DTSet_Set(set, 3, 0), 1);
    EXPECT_EQ(DTSet_Set(set, 3, 0), 0);
    EXPECT_EQ(DTSet_Get(set, 3), 0);
    EXPECT_EQ(set->count, 0);
    DTSet_Release(set);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(Set, KeepsOneBitForEachMember) {
    DTSet *set = DTSet_New(10);
    EXPECT_EQ(outstanding(0), 8u + 2 + 4 + sizeof(DTPrint) + 4); // the set, and the console's sink
    EXPECT_EQ(bits(set)[0] | bits(set)[1], 0);
    for (const uint32_t member : {0u, 7u, 8u, 9u}) EXPECT_EQ(DTSet_Set(set, member, 1), 1);
    EXPECT_EQ(bits(set)[0], 0x81);
    EXPECT_EQ(bits(set)[1], 0x03);
    EXPECT_EQ(DTSet_Set(set, 7, 0), 1);
    for (uint32_t member = 0; member < 10; ++member)
        EXPECT_EQ(DTSet_Get(set, member), member == 0 || member >= 8) << member;
    EXPECT_EQ(set->count, 3);
    DTSet_Release(set);
}

TEST(Set, EndsAtItsSize) {
    DTSet *set = DTSet_New(8); // one byte of bits: what lies behind it is not the set's
    EXPECT_EQ(DTSet_Set(set, 7, 1), 1);
    EXPECT_EQ(DTSet_Set(set, 8, 1), 0);
    EXPECT_EQ(DTSet_Get(set, 8), 0);
    EXPECT_EQ(DTSet_Set(set, UINT32_MAX, 1), 0);
    EXPECT_EQ(set->count, 1);
    DTSet_Release(set);
}

TEST(Set, RefusesWhatItCannotHold) {
    EXPECT_EQ(DTSet_New(0), nullptr);
    EXPECT_EQ(DTSet_New(0x80000000u), nullptr);
    EXPECT_EQ(DTSet_New(UINT32_MAX), nullptr);
    EXPECT_EQ(platform.allocations, 0u);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTSet_New(1), nullptr);
    EXPECT_EQ(DTSet_Set(nullptr, 0, 1), 0);
    EXPECT_EQ(DTSet_Get(nullptr, 0), 0);
    DTSet_Release(nullptr);
}
