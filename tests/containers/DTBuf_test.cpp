#include "support/platform.h"

#include <dt/containers.h>
#include <gmock/gmock.h>

namespace {

std::string text_of(const DTBuf *buf) {
    void *start = nullptr;
    const uint32_t length = DTBuf_Get(buf, 0, &start);
    return length == 0 ? "" : std::string(static_cast<char *>(start), length - 1);
}

} // namespace

TEST(ByteBuffer, GrowsInWholeSteps) {
    DTBuf *buf = DTBuf_New(1, 16, 0);
    EXPECT_EQ(buf->step, 16u);
    EXPECT_EQ(DTBuf_Append(buf, "0123456789abcdef", 0), 1);
    EXPECT_EQ(buf->capacity, 16u);
    EXPECT_EQ(DTBuf_Append(buf, "0123", 4), 1);
    EXPECT_EQ(buf->capacity, 32u);
    EXPECT_EQ(DTBuf_Append(buf, "0123456789012345678901234567890", 30), 1);
    EXPECT_EQ(buf->capacity, 64u);
    EXPECT_EQ(text_of(buf), "0123456789abcdef0123012345678901234567890123456789");
    EXPECT_EQ(buf->data[50], 0);
    DTBuf_Release(buf);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(ByteBuffer, HoldsElementsOfAnySize) {
    DTBuf *buf = DTBuf_New(4, 2, 10);
    const uint32_t numbers[] = {1, 2, 3};
    EXPECT_EQ(DTBuf_Append(buf, numbers, 3), 1);
    EXPECT_EQ(buf->capacity, 5u); // 12 bytes, rounded to 20
    void *at = nullptr;
    EXPECT_EQ(DTBuf_Get(buf, 2, &at), 2u);
    EXPECT_EQ(memcmp(at, &numbers[2], 4), 0);
    EXPECT_EQ(DTBuf_Get(buf, 3, &at), 0u);
    EXPECT_EQ(at, nullptr);
    DTBuf_Clear(buf);
    EXPECT_EQ(DTBuf_Length(buf), 0u);
    EXPECT_EQ(memcmp(buf->data, "\0\0\0\0\0\0\0\0\0\0\0\0", 12), 0);
    DTBuf_Release(buf);
}

TEST(ByteBuffer, SetLeavesTheLengthAndDoesNotSurviveAGrowth) {
    DTBuf *buf = DTBuf_New(1, 4, 0);
    EXPECT_EQ(DTBuf_Set(buf, 3, "xy", 2), 1);
    EXPECT_EQ(buf->capacity, 8u);
    EXPECT_EQ(buf->data[4], 'y');
    EXPECT_EQ(DTBuf_Length(buf), 0u);
    EXPECT_EQ(DTBuf_Append(buf, "abcdefghi", 0), 1);
    EXPECT_EQ(DTBuf_Set(buf, 8, "I", 1), 1);
    EXPECT_EQ(text_of(buf), "abcdefghI");
    DTBuf_Release(buf);
}

// A growth that fails leaves everything as it was; the same append succeeds once memory is back.
TEST(ByteBuffer, AppendThatCannotGrowChangesNothing) {
    DTBuf *buf = DTBuf_New(1, 4, 0);
    ASSERT_EQ(DTBuf_Append(buf, "abcd", 0), 1); // exactly full
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTBuf_Append(buf, "e", 0), 0);
    EXPECT_EQ(DTBuf_Set(buf, 4, "e", 1), 0);
    EXPECT_EQ(text_of(buf), "abcd");
    platform.allocations_work();
    EXPECT_EQ(DTBuf_Append(buf, "e", 0), 1);
    EXPECT_EQ(text_of(buf), "abcde");
    DTBuf_Release(buf);
}

TEST(ByteBuffer, AppendsFromItsOwnArea) {
    DTBuf *buf = DTBuf_New(1, 4, 0);
    DTBuf_Append(buf, "abc", 0);
    EXPECT_EQ(DTBuf_Append(buf, buf->data, 3), 1); // grows: the source moves
    EXPECT_EQ(DTBuf_Set(buf, 1, buf->data, 4), 1); // overlaps
    EXPECT_EQ(text_of(buf), "aabcac");
    DTBuf_Release(buf);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(ByteBuffer, RefusesSizesThatWrap) {
    EXPECT_EQ(DTBuf_New(0x10000, 0x10000, 1), nullptr);
    EXPECT_EQ(DTBuf_New(UINT32_MAX, 1, 1), nullptr);
    DTBuf *buf = DTBuf_New(4, 1, 4);
    DTBuf_Append(buf, "wxyz", 1);
    EXPECT_EQ(DTBuf_Append(buf, "", UINT32_MAX), 0);     // length + count
    EXPECT_EQ(DTBuf_Append(buf, "", 0x40000000), 0);     // unit x elements
    EXPECT_EQ(DTBuf_Set(buf, UINT32_MAX - 1, "", 3), 0); // index + count
    buf->step = UINT32_MAX;
    EXPECT_EQ(DTBuf_Append(buf, "", 1), 0); // the rounding
    EXPECT_EQ(DTBuf_Length(buf), 1u);
    DTBuf_Release(buf);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(ByteBuffer, RefusesWhatCannotGrowAndAnswersNull) {
    EXPECT_EQ(DTBuf_New(1, 0, 0), nullptr);
    EXPECT_EQ(DTBuf_New(0, 1, 1), nullptr);
    for (unsigned nth : {1u, 2u}) {
        platform.fail_allocations_from(nth);
        EXPECT_EQ(DTBuf_New(1, 4, 0), nullptr);
        EXPECT_EQ(platform.blocks, 0u);
    }
    void *at = &at;
    EXPECT_EQ(DTBuf_Get(nullptr, 0, &at), 0u);
    EXPECT_EQ(at, &at);
    EXPECT_EQ(DTBuf_Append(nullptr, "a", 1), 0);
    EXPECT_EQ(DTBuf_Set(nullptr, 0, "a", 1), 0);
    EXPECT_EQ(DTBuf_Length(nullptr), 0u);
    DTBuf_Clear(nullptr);
    DTBuf_Release(nullptr);
}
