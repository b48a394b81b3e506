#include "support/story.h"

TEST(PackFormat, SizesAndCountsFields) {
    int32_t count = 0;
    EXPECT_EQ(DTBuffer_GetPackSize("TBhI3S5S7S", &count), 26);
    EXPECT_EQ(count, 7);
    // A count is of the next letter, and only of s and S; any other character drops it.
    const char *formats[] = {"12s", "2B4I",  "1x2s",  "1B2s",        "12\x80s",
                             "*s",  "10s0S", nullptr, "3000000000s", "2147483647s2147483647SI"};
    const int32_t sizes[] = {12, 5, 2, 3, 0, 0, 10, 0, INT32_MAX, INT32_MAX};
    for (size_t i = 0; i < 10; ++i)
        EXPECT_EQ(DTBuffer_GetPackSize(formats[i], nullptr), sizes[i]) << formats[i];
}

TEST(PackFormat, PacksEachLetter) {
    std::string record(40, '\xEE');
    const int32_t size = DTBuffer_Pack(record.data(), "Bb Hh-Ii T,3s2S0s", 0x1FF, -1, 300, -2, 258,
                                       -1, uint32_t{0x01020304}, "ab", "xy", "unused");
    EXPECT_STREQ(DTString_SHFormat(record.data(), size + 1),
                 "FF FF 2C 01 FE FF 02 01 00 00 FF FF FF FF 04 03 \n02 01 61 62 00 78 79 EE ");
    EXPECT_EQ(DTBuffer_PackN(record.data(), 6, "BI2s", 1, 2, "xy"), -1);
    EXPECT_EQ(record[0], '\xFF');
    EXPECT_EQ(DTBuffer_PackN(record.data(), 7, "BI2s", 1, 2, "xy"), 7);
    EXPECT_EQ(DTBuffer_PackN(record.data(), UINT32_MAX, "2147483647sB", "", 1), -1);
    EXPECT_EQ(DTBuffer_Pack(nullptr, "B", 1) + DTBuffer_PackN(nullptr, 1, "B", 1), 0);
}

TEST(PackFormat, ExtractsWhatWasPackedAndStopsBeforeAnOverrun) {
    const char record[] = "\x80\xFE\xFF\4\3\2\1abc\xFF";
    uint8_t byte;
    int16_t half;
    uint32_t word;
    char text[4] = "...", none[2] = ".";
    EXPECT_EQ(DTBuffer_UNPackN("bHT3s0SB", record, 10, &byte, &half, &word, text, none, &byte), -1);
    EXPECT_EQ(byte, 0x80);
    EXPECT_EQ(half, -2);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(text + std::string(none), "abc");
    EXPECT_EQ(DTBuffer_UNPackN("bHT3s0SB", record, 11, &byte, &half, &word, text, none, &byte), 6);
    EXPECT_EQ(byte, 0xFF);
    EXPECT_EQ(DTBuffer_UNPackN("99999999999s", record, 11, text), -1);
    EXPECT_EQ(DTBuffer_UNPackN("*bI", record, 3), -1);
    EXPECT_EQ(DTBuffer_UNPack(nullptr, record), 0);
    // Without a buffer there are fields of no bytes alone.
    EXPECT_EQ(DTBuffer_UNPack("0s0SB", nullptr, text, none, &byte), 2);
    EXPECT_EQ(text + std::string(none), "");
    EXPECT_EQ(DTBuffer_UNPackN("*0sB", nullptr, 9) + DTBuffer_UNPack("*", nullptr), 1);
    EXPECT_EQ(platform.console(),
              "format:*bI\n0001[B]=>128<\nformat:*0sB\n0001[0s]=><\nformat:*\n");
}

TEST(PackFormat, ShowsEachLetterAndLongFieldsWhole) {
    fake_clock.stand_at(a_sunday_evening);
    const uint8_t numbers[] = {0xFF, 0xFF, 0,    0x80, 0,    0x80, 0xEF, 0xBE, 0xAD,
                               0xDE, 0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0};
    EXPECT_EQ(DTBuffer_UNPack("*Bb9H hIiT", numbers), 7);
    DTBuffer_UNPack("*5s3s0s2S0S", "ab\0cdxyzAB");
    EXPECT_EQ(platform.take_console(),
              "format:*Bb9H hIiT\n"
              "0001[B]=>0xFF<\n0002[B]=>255<\n0003[H]=>0xFFFF8000<\n0004[h]=>-32768<\n"
              "0005[I]=>0xDEADBEEF<\n0006[i]=>-1<\n0007[T]=>2014/11/16 18:44:43<\n"
              "format:*5s3s0s2S0S\n0001[5s]=>ab<\n0002[3s]=>xyz<\n0003[0s]=><\n"
              "0004[2S]=>\n41 42 \n0005[0S]=>\n\n");
    const std::string text(5000, 'x'), format = "*" + std::string(2000, ' ') + "5000s5000S";
    std::string dump;
    for (int i = 1; i <= 5000; ++i) dump += i % 16 == 0 && i != 5000 ? "78 \n" : "78 ";
    DTBuffer_UNPack(format.c_str(), (text + text).c_str());
    EXPECT_EQ(platform.console(),
              "format:" + format + "\n0001[5000s]=>" + text + "<\n0002[5000S]=>\n" + dump + "\n");
}
