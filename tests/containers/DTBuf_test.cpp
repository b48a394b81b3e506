#include "support/platform.h"

#include <dt/containers.h>
#include <gtest/gtest.h>

namespace {

std::string text_of(const DTBuf *buf) { return {buf->data, buf->data + buf->length}; }

} // namespace

TEST(ByteBuffer, GrowsInWholeStepsOrNotAtAll) {
    DTBuf *buf = DTBuf_New(1, 16, 0);
    EXPECT_EQ(DTBuf_Append(buf, "0123456789abcdef", 0), 1);
    platform.fail_allocations_from(1); // exactly full now
    EXPECT_EQ(DTBuf_Append(buf, "0", 1) + DTBuf_Set(buf, 16, "0", 1), 0);
    EXPECT_EQ(text_of(buf), "0123456789abcdef");
    platform.allocations_work();
    EXPECT_EQ(DTBuf_Append(buf, "0123", 3), 1);
    EXPECT_EQ(buf->capacity, 32u);
    EXPECT_EQ(DTBuf_Append(buf, std::string(30, 'x').c_str(), 0), 1);
    EXPECT_EQ(buf->capacity, 64u);
    EXPECT_EQ(text_of(buf), "0123456789abcdef012" + std::string(30, 'x'));
    EXPECT_EQ(buf->data[49], 0);
    DTBuf_Release(buf);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(ByteBuffer, HoldsElementsOfAnySize) {
    DTBuf *buf = DTBuf_New(4, 2, 10);
    EXPECT_EQ(DTBuf_Append(buf, "one.two.three...", 2), 1);
    EXPECT_EQ(DTBuf_Append(buf, "thr.", 1), 1);
    EXPECT_EQ(buf->capacity, 5u); // 12 bytes, rounded to 20
    void *at = nullptr;
    EXPECT_EQ(DTBuf_Get(buf, 1, &at), 3u);
    EXPECT_STREQ(static_cast<char *>(at), "two.thr.");
    EXPECT_EQ(DTBuf_Get(buf, 3, &at), 0u);
    EXPECT_EQ(at, nullptr);
    DTBuf_Clear(buf);
    EXPECT_EQ(DTBuf_Length(buf), 0u);
    EXPECT_EQ(std::string(buf->data, buf->data + 20), std::string(20, '\0'));
}

TEST(ByteBuffer, CopiesFromItsOwnArea) {
    DTBuf *buf = DTBuf_New(1, 4, 0);
    EXPECT_EQ(DTBuf_Set(buf, 3, "xy", 2), 1); // beyond the length, which stays
    EXPECT_EQ(buf->data[4], 'y');
    EXPECT_EQ(DTBuf_Append(buf, "abcdef", 0), 1);
    EXPECT_EQ(DTBuf_Append(buf, buf->data, 6), 1); // grows: the source moves
    EXPECT_EQ(DTBuf_Set(buf, 1, buf->data, 4), 1); // overlaps
    EXPECT_EQ(text_of(buf), "aabcdfabcdef");
}

TEST(ByteBuffer, RefusesSizesThatWrapAndWhatCannotGrow) {
    EXPECT_EQ(DTBuf_New(0x10000, 0x10000, 1), nullptr);
    EXPECT_EQ(DTBuf_New(1, 0, 0), nullptr);
    EXPECT_EQ(DTBuf_New(0, 1, 1), nullptr);
    DTBuf *buf = DTBuf_New(4, 1, 4);
    DTBuf_Append(buf, "wxyz", 1);
    EXPECT_EQ(DTBuf_Append(buf, "", UINT32_MAX), 0);     // length + count
    EXPECT_EQ(DTBuf_Append(buf, "", 0x40000000), 0);     // unit x elements
    EXPECT_EQ(DTBuf_Set(buf, UINT32_MAX - 1, "", 3), 0); // index + count
    EXPECT_EQ(DTBuf_Append(buf, "text", 0), 0);          // of elements of one byte only
    buf->step = UINT32_MAX;
    EXPECT_EQ(DTBuf_Append(buf, "", 1), 0); // the rounding
    EXPECT_EQ(DTBuf_Length(buf), 1u);
}
