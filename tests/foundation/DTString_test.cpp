#include <dt/foundation.h>
#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

std::string hex(size_t count) {
    const std::vector<uint8_t> bytes(count, 0xAB);
    return DTString_SHFormat(bytes.data(), static_cast<int32_t>(count));
}

std::vector<std::string> split(const char *text, const char *separator, int32_t max,
                               int32_t expected) {
    static char copy[100];
    char *pieces[20] = {};
    strcpy(copy, text);
    const int32_t count = DTString_Split(copy, separator, pieces, max);
    EXPECT_EQ(count, expected);
    return {pieces, pieces + count};
}

} // namespace

TEST(Format, SharedTextIsCutAtItsEnd) {
    const std::string longer(1200, 'x');
    const char *first = DTString_SFormat("%s", longer.c_str());
    EXPECT_EQ(first, longer.substr(0, 999));
    EXPECT_EQ(DTString_SFormat("%d-%s", -7, "b"), first);
    EXPECT_STREQ(first, "-7-b");
}

TEST(Format, KnowsTheSizeOfAnArrayAndTrustsAPointer) {
    char small[4] = {};
    char large[20] = {};
    char *pointer = large;
    EXPECT_STREQ(DTString_Format(small, "%d", 123456), "123");
    EXPECT_STREQ(DTString_Format(pointer, "%d", 123456), "123456");
    EXPECT_STREQ((DTString_Format)(large, "%s", "plain"), "plain");
    EXPECT_STREQ(DTString_FormatN(large, 3, "abc"), "ab");
    large[0] = 'x';
    DTString_FormatN(large, 0, "abc");
    EXPECT_EQ(large[0], 'x');
}

TEST(HexDump, BreaksLinesBehindEverySixteenBytes) {
    const uint8_t bytes[] = {0x00, 0xAB, 0x7F};
    char text[100];
    EXPECT_STREQ(DTString_HFormat(text, bytes, 3), "00 AB 7F ");
    EXPECT_STREQ(DTString_HFormat(text, bytes, 0), "");
    EXPECT_STREQ(DTString_HFormat(text, bytes, -1), "");
    EXPECT_STREQ(DTString_HFormat(text, nullptr, 3), "");
    EXPECT_EQ(hex(16).find('\n'), std::string::npos);
    EXPECT_EQ(hex(17), hex(16) + "\nAB ");
    EXPECT_EQ(hex(33), hex(17).substr(0, 49) + hex(16) + "\nAB ");
}

TEST(HexDump, StopsBeforeTheByteThatDoesNotFit) {
    EXPECT_EQ(hex(3265).size(), 9999u);
    EXPECT_EQ(hex(3266), hex(3265));
    char text[7];
    const uint8_t bytes[] = {1, 2, 3};
    EXPECT_STREQ(DTString_HFormat(text, bytes, 3), "01 02 ");
    EXPECT_STREQ(DTString_HFormatN(text, 6, bytes, 3), "01 ");
    EXPECT_STREQ(DTString_HFormatN(text, 1, bytes, 3), "");
}

TEST(Split, CutsAtEachSeparator) {
    EXPECT_THAT(split("a,b,c", ",", 0, 3), ElementsAre("a", "b", "c"));
    EXPECT_THAT(split("a,b,c", ",", 1, 1), ElementsAre("a,b,c"));
    EXPECT_THAT(split("a,b,c", ",", -5, 1), ElementsAre("a,b,c"));
    EXPECT_THAT(split("a,b,c", ",", 2, 2), ElementsAre("a", "b,c"));
    EXPECT_THAT(split("a::b", "::", 0, 2), ElementsAre("a", "b"));
    EXPECT_THAT(split("a:b", "::", 0, 1), ElementsAre("a:b"));
    EXPECT_THAT(split(",a", ",", 0, 2), ElementsAre("", "a"));
    EXPECT_THAT(split("", ",", 0, 1), ElementsAre(""));
}

TEST(Split, NeverTakesAPiecesFirstCharacterForASeparator) {
    EXPECT_THAT(split("a,,b", ",", 0, 2), ElementsAre("a", ",b"));
    EXPECT_THAT(split("a,,b,c", ",", 0, 3), ElementsAre("a", ",b", "c"));
}

TEST(Split, StoresAnEmptyLastPiece) {
    EXPECT_THAT(split("a,b,", ",", 0, 3), ElementsAre("a", "b", ""));
    EXPECT_THAT(split("a,", ",", 2, 2), ElementsAre("a", ""));
}

TEST(Split, AnswersMissingArguments) {
    char text[] = "a,b";
    char *pieces[3];
    EXPECT_EQ(DTString_Split(nullptr, ",", pieces, 0), 0);
    EXPECT_EQ(DTString_Split(text, nullptr, pieces, 0), 0);
    EXPECT_EQ(DTString_Split(text, "", pieces, 0), 1);
    EXPECT_STREQ(pieces[0], "a,b");
}

TEST(Trim, LeavesTheTextAsItIs) {
    char text[] = " a ";
    EXPECT_EQ(DTString_Trim(text, 1), text);
    EXPECT_EQ(DTString_LTrim(text, 1), text);
    EXPECT_EQ(DTString_RTrim(text, 1), text);
    EXPECT_STREQ(text, " a ");
}
