#include "support/story.h"

TEST(ByteBuffer, GrowsInWholeStepsAndCopiesFromItsOwnArea) {
    DTBuf *buf = DTBuf_New(1, 16, 0);
    EXPECT_EQ(DTBuf_Append(buf, "0123456789abcdef", 0), 1);
    EXPECT_EQ(buf->capacity, 16u); // exactly full
    EXPECT_EQ(DTBuf_Append(buf, "0123", 3), 1);
    EXPECT_EQ(buf->capacity, 32u);
    EXPECT_EQ(DTBuf_Append(buf, buf->data, 19), 1); // the source moves
    EXPECT_EQ(buf->capacity, 48u);
    EXPECT_EQ(DTBuf_Set(buf, 1, buf->data, 4), 1); // overlaps
    EXPECT_EQ(DTBuf_Set(buf, 38, "x", 1), 1);      // beyond the length, which stays
    EXPECT_EQ(text_of(buf), "0012356789abcdef0120123456789abcdef012");
    EXPECT_STREQ(reinterpret_cast<char *>(buf->data + 38), "x");
    DTBuf_Release(buf);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(ByteBuffer, HoldsElementsOfAnySize) {
    DTBuf *buf = DTBuf_New(4, 2, 10);
    EXPECT_EQ(DTBuf_Append(buf, "one.two.three...", 2), 1);
    EXPECT_EQ(DTBuf_Append(buf, "3\0..", 0), 1); // a text of one byte: one element
    EXPECT_EQ(buf->capacity, 5u);                // 12 bytes, rounded to 20
    void *at = nullptr;
    EXPECT_EQ(DTBuf_Get(buf, 1, &at), 3u);
    EXPECT_EQ(memcmp(at, "two.3\0..", 9), 0);
    EXPECT_EQ(DTBuf_Get(buf, 3, &at), 0u);
    EXPECT_EQ(at, nullptr);
    DTBuf_Clear(buf);
    EXPECT_EQ(DTBuf_Length(buf), 0u);
    EXPECT_EQ(std::string(buf->data, buf->data + 20), std::string(20, '\0'));
}

TEST(ByteBuffer, RefusesSizesThatWrapAndWhatCannotGrow) {
    EXPECT_EQ(DTBuf_New(0x10000, 0x10000, 1), nullptr);
    EXPECT_EQ(DTBuf_New(1, 0, 0), nullptr);
    EXPECT_EQ(DTBuf_New(0, 1, 1), nullptr);
    DTBuf *buf = DTBuf_New(4, 1, 4);
    DTBuf_Append(buf, "wxyz", 1);
    EXPECT_EQ(DTBuf_Append(buf, nullptr, 0) + DTBuf_Set(buf, 0, nullptr, 0), 0);
    EXPECT_EQ(DTBuf_Get(buf, 0, nullptr), 0u);
    EXPECT_EQ(DTBuf_Append(buf, "", UINT32_MAX), 0);     // length + count
    EXPECT_EQ(DTBuf_Append(buf, "", 0x40000000), 0);     // unit x elements
    EXPECT_EQ(DTBuf_Set(buf, UINT32_MAX - 1, "", 3), 0); // index + count
    buf->step = UINT32_MAX;
    EXPECT_EQ(DTBuf_Append(buf, "", 1), 0); // the rounding
    EXPECT_EQ(text_of(buf), "w");
}
