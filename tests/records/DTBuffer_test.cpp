#include "support/clock.h"
#include "support/platform.h"

#include <dt/foundation.h>
#include <dt/records.h>
#include <gmock/gmock.h>

namespace {

int32_t fields_of(const char *format) {
    int32_t count = -1;
    DTBuffer_GetPackSize(format, &count);
    return count;
}

std::string hex_of(const void *bytes, int32_t count) { return DTString_SHFormat(bytes, count); }

std::string shown(const char *format, const void *bytes) {
    platform.take_console();
    DTBuffer_UNPack(format, bytes);
    return platform.take_console();
}

} // namespace

TEST(PackFormat, SizesAndCountsFields) {
    EXPECT_EQ(DTBuffer_GetPackSize("TBhI3S5S7S", nullptr), 26);
    EXPECT_EQ(fields_of("TBhI3S5S7S"), 7);
    EXPECT_EQ(DTBuffer_GetPackSize("BIIIH", nullptr), 15);
    EXPECT_EQ(DTBuffer_GetPackSize("2B4I", nullptr), 5); // counts of other letters do not count
    EXPECT_EQ(DTBuffer_GetPackSize("1x2s", nullptr), 2); // any other character drops the count
    EXPECT_EQ(DTBuffer_GetPackSize("1B2s", nullptr), 3); // and so does a letter
    EXPECT_EQ(DTBuffer_GetPackSize("12\x80s", nullptr), 0);
    EXPECT_EQ(DTBuffer_GetPackSize("12s", nullptr), 12);
    EXPECT_EQ(DTBuffer_GetPackSize("*s", nullptr), 0);
    EXPECT_EQ(fields_of("*sx"), 1);
    EXPECT_EQ(fields_of(nullptr), 0);
}

TEST(PackFormat, HoldsHugeCountsAtTheLargest) {
    EXPECT_EQ(DTBuffer_GetPackSize("4294967297s", nullptr), INT32_MAX);
    EXPECT_EQ(DTBuffer_GetPackSize("2147483647s2147483647SI", nullptr), INT32_MAX);
    char byte;
    EXPECT_EQ(DTBuffer_PackN(&byte, UINT32_MAX, "2147483647sB", "", 1), -1);
    EXPECT_EQ(DTBuffer_UNPackN("99999999999s", &byte, 1, &byte), -1);
}

TEST(PackFormat, PacksEachLetter) {
    uint8_t record[40];
    memset(record, 0xEE, sizeof record);
    const int32_t size = DTBuffer_Pack(record, "Bb Hh-Ii T,3s2S0s", 0x1FF, -1, 300, -2, 258, -1,
                                       uint32_t{0x01020304}, "ab", "xy", "unused");
    EXPECT_EQ(hex_of(record, size + 1),
              "FF FF 2C 01 FE FF 02 01 00 00 FF FF FF FF 04 03 \n02 01 61 62 00 78 79 EE ");
    EXPECT_EQ(DTBuffer_Pack(nullptr, "B", 1), 0);
    EXPECT_EQ(DTBuffer_Pack(record, nullptr), 0);
}

TEST(PackFormat, ExtractsWhatWasPacked) {
    const uint8_t record[] = {0x80, 0xFE, 0xFF, 4, 3, 2, 1, 'a', 'b', 'c', 0xFF};
    uint8_t byte;
    int16_t half;
    uint32_t word;
    char text[4] = "...", empty[2] = ".";
    EXPECT_EQ(DTBuffer_UNPack("bHT3s0SB", record, &byte, &half, &word, text, empty, &byte), 6);
    EXPECT_EQ(half, -2);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_STREQ(text, "abc");
    EXPECT_STREQ(empty, "");
    EXPECT_EQ(byte, 0xFF);
    EXPECT_EQ(DTBuffer_UNPack(nullptr, record), 0);
    EXPECT_EQ(DTBuffer_UNPack("B", nullptr, &byte), 0);
}

TEST(PackFormat, SizedFormsStopBeforeAnOverrun) {
    uint8_t record[7];
    memset(record, 0xEE, sizeof record);
    EXPECT_EQ(DTBuffer_PackN(record, 6, "BI2s", 1, 2, "xy"), -1);
    EXPECT_EQ(record[0], 0xEE);
    EXPECT_EQ(DTBuffer_PackN(record, 7, "BI2s", 1, 2, "xy"), 7);
    uint8_t byte = 0;
    uint32_t word = 0;
    char text[3] = "..";
    EXPECT_EQ(DTBuffer_UNPackN("BI2s", record, 6, &byte, &word, text), -1);
    EXPECT_EQ(word, 2u);
    EXPECT_STREQ(text, "..");
    EXPECT_EQ(DTBuffer_UNPackN("BI2s", record, 7, &byte, &word, text), 3);
    platform.take_console();
    EXPECT_EQ(DTBuffer_UNPackN("*BI", record, 3), -1);
    EXPECT_EQ(platform.take_console(), "format:*BI\n0001[B]=>0x01<\n");
}

TEST(PackFormat, ShowsEachLetter) {
    fake_clock.stand_at(a_sunday_evening);
    const uint8_t numbers[] = {0xFF, 0xFF, 0,    0x80, 0,    0x80, 0xEF, 0xBE, 0xAD,
                               0xDE, 0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0};
    EXPECT_EQ(shown("*Bb9H hIiT", numbers), "format:*Bb9H hIiT\n"
                                            "0001[B]=>0xFF<\n"
                                            "0002[B]=>255<\n"
                                            "0003[H]=>0xFFFF8000<\n"
                                            "0004[h]=>-32768<\n"
                                            "0005[I]=>0xDEADBEEF<\n"
                                            "0006[i]=>-1<\n"
                                            "0007[T]=>2014/11/16 18:44:43<\n");
    EXPECT_EQ(shown("*5s3s0s2S0S", "ab\0cdxyzAB"), "format:*5s3s0s2S0S\n"
                                                   "0001[5s]=>ab<\n"
                                                   "0002[3s]=>xyz<\n"
                                                   "0003[0s]=><\n"
                                                   "0004[2S]=>\n41 42 \n"
                                                   "0005[0S]=>\n\n");
    EXPECT_EQ(DTBuffer_UNPack("*HH", numbers), 2);
}

TEST(PackFormat, ShowsLongFieldsWhole) {
    const std::string text(5000, 'x');
    EXPECT_EQ(shown("*5000s", text.c_str()), "format:*5000s\n0001[5000s]=>" + text + "<\n");
    std::string dump;
    for (int i = 1; i <= 5000; ++i) dump += i % 16 == 0 && i != 5000 ? "78 \n" : "78 ";
    EXPECT_EQ(shown("*5000S", text.c_str()), "format:*5000S\n0001[5000S]=>\n" + dump + "\n");
    const std::string format = "*" + std::string(2000, ' ') + "B";
    EXPECT_EQ(shown(format.c_str(), "\1"), "format:" + format + "\n0001[B]=>0x01<\n");
}
