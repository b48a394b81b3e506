#include "support/story.h"

TEST(Format, KnowsTheSizeOfAnArrayAndTrustsAPointer) {
    const std::string longer(1200, 'x');
    EXPECT_EQ(DTString_SFormat("%s", longer.c_str()), longer.substr(0, 999));
    char small[4], large[2000];
    char *pointer = large;
    EXPECT_STREQ(DTString_Format(small, "%d", 123456), "123");
    EXPECT_EQ(DTString_Format(pointer, "%s", longer.c_str()), longer);
    EXPECT_STREQ(DTString_FormatN(large, 3, "abc"), "ab");
    const wchar_t no_character[] = {wchar_t{0x7FFFFFFF}, 0}; // ends the text
    EXPECT_STREQ(DTString_FormatN(large, 100, "kept %ls lost", no_character), "kept ");
    EXPECT_STREQ(DTString_FormatN(large, 0, "no room"), "kept ");
    EXPECT_STREQ(DTString_FormatN(large, 1, "no text"), "");
}

TEST(HexDump, BreaksLinesAndStopsBeforeTheByteThatDoesNotFit) {
    EXPECT_STREQ(DTString_SHFormat("\x00\xAB\x7F", 3), "00 AB 7F ");
    EXPECT_STREQ(DTString_SHFormat("a", -1), "");
    EXPECT_STREQ(DTString_SHFormat(nullptr, 3), "");
    const auto hex = [](size_t count) -> std::string {
        return DTString_SHFormat(std::string(count, '\xAB').data(), static_cast<int32_t>(count));
    };
    EXPECT_EQ(hex(33), hex(16) + "\n" + hex(16) + "\nAB ");
    EXPECT_EQ(hex(3266).size(), 9999u);
    char text[52];
    EXPECT_STREQ(DTString_HFormatN(text, 6, "\1\2\3", 3), "01 ");
    EXPECT_EQ(DTString_HFormat(text, std::string(20, '\xAB').data(), 20), hex(16)); // as an array
}

TEST(Split, CutsAtEachSeparator) {
    // The text, its separator and the most pieces; then the pieces, each with a bar behind it.
    const std::tuple<std::string, const char *, int32_t, const char *> cases[] = {
        {"a,b,c", ",", 1, "a,b,c|"}, {"a,b,c", ",", -5, "a,b,c|"},  {"a,b,c", ",", 0, "a|b|c|"},
        {"a,b,c", ",", 2, "a|b,c|"}, {"a::b:c", "::", 0, "a|b:c|"}, {"", ",", 0, "|"},
        {"a,b", "", 0, "a,b|"},      {"a,b", nullptr, 0, ""},       {{"a,\0,b", 5}, ",", 0, "a||"},
        {",a,,b", ",", 0, "|a|,b|"}, // a piece's first character is no separator
    };
    for (auto [text, separator, max, expected] : cases) {
        char *pieces[20];
        const int32_t count = DTString_Split(text.data(), separator, pieces, max);
        std::string all;
        for (int32_t i = 0; i < count; ++i) all += std::string(pieces[i]) + "|";
        EXPECT_EQ(all, expected);
    }
    EXPECT_EQ(DTString_Split(std::string("a,b").data(), ",", nullptr, 0), 0);
}
