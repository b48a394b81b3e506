#include "support/store.h"

namespace {

constexpr char stamp[] = "2014/11/16 18:44:43";

struct Logger : RecordsTest {
    DTLogger *logger = DTLogger_New(255);
    // Every record as its key and value, the given stamp as "@".
    std::string stored(const std::string &expected_stamp) {
        std::string all;
        for (const auto &[key, value] : records_of(logger->info))
            all += key + ":" + (value == expected_stamp ? "@" : value) + ";";
        return all;
    }
    std::string shown_in_buffer(uint32_t unit = 1) {
        DTBuf *buf = DTBuf_New(unit, 1 << 20, 0);
        DTLogger_ShowToBuf(logger, buf);
        return text_of(buf);
    }
};

} // namespace

TEST_F(Logger, AcceptsEchoesAndStoresAsItsOptionsSay) {
    const uint32_t shut = DTLOGGER_ECHO | DTLOGGER_LEVEL0 | DTLOGGER_LEVEL1;
    const uint32_t some = shut | DTLOGGER_STORE;
    const std::tuple<uint32_t, uint32_t, const char *, int32_t> lines[] = {
        {255, 0, "zero,", 32},     {255, 1, "", 27},       {255, 2, "two", 30},
        {255, 3, "three", 32},     {255, 3, "", 27},       {255, 9, "nine", 31},
        {some, 1, "one", 30},      {some, 1, "", 27},      {some, 2, "two", -1},
        {some, 3, "three", -1},    {some, 0, "zero,", 32}, {some, 4, "four", 31},
        {shut, 1, "not kept", -1},
    };
    for (const auto &[flags, level, text, answer] : lines) {
        DTLogger_SetFlag(logger, flags);
        EXPECT_EQ(DTLogger_Write(logger, level, text), answer) << text;
    }
    EXPECT_EQ(stored(stamp), "l:@;l:zero,;l:@;l:;w:@;w:two;e:@;e:three;e:@;e:;l:@;l:nine;"
                             "l:@;l:one;l:@;l:;l:@;l:zero,;l:@;l:four;");
    EXPECT_THAT(platform.prints, ElementsAre("zero,three\n", "\n", // 255 echoes 0 and 3
                                             "one\n", "zero,four\n", "not kept\n"));
}

TEST_F(Logger, AppendAsksNoOptionBits) {
    DTLogger_SetFlag(logger, 0);
    for (const uint32_t ignored : {1u, 0u}) { // comes before everything else
        DTLogger_Ignore(logger, ignored);
        DTLogger_Append(logger, 0, 99, ignored ? "dropped" : "zero");
        EXPECT_EQ(DTLogger_Write(logger, 0, "dropped"), ignored ? 0 : -1);
    }
    DTLogger_Append(logger, 0, 99, "");
    DTLogger_Append(logger, 3, 99, "three");
    EXPECT_THAT(platform.prints, ElementsAre("zero\n"));
    EXPECT_EQ(stored("11/16 18:44:43 "), "l:@;l:zero;l:@;l:;e:@;e:three;");
}

// 65,536 is no multiple of 100: the 16-bit count of records starts again and pauses there.
TEST_F(Logger, ShowsEachRecordOnALineOfItsOwn) {
    DTLogger_Write(logger, 1, "one");
    DTLogger_Write(logger, 2, "");
    const std::string expected = std::string(stamp) + "\none\n" + stamp + "\n\n";
    EXPECT_EQ(console_of(DTLogger_ShowInfo, logger, 1), expected);
    EXPECT_EQ(console_of(DTLogger_ShowToBuf, logger, reinterpret_cast<DTBuf *>(100)), expected);
    EXPECT_EQ(shown_in_buffer(), expected);
    EXPECT_EQ(shown_in_buffer(8), "");
    DTLogger_ClearInfo(logger);
    EXPECT_EQ(shown_in_buffer(), "");
    DTInfo_ReSize(logger->info, 0);
    for (int line = 0; line < 32768; ++line) DTLogger_Append(logger, 1, 0, "");
    DTInfo_Write(logger->info, "l", "one more");
    platform.delays.clear();
    shown_in_buffer();
    EXPECT_EQ(platform.delays, std::vector<uint32_t>(657, 1000)); // each hundredth
}

TEST_F(Logger, MakesItsStoreWithTheFirstLine) {
    DTLogger_Append(logger, 1, 0, nullptr);
    EXPECT_EQ(DTLogger_Write(logger, 1, nullptr), -1);
    EXPECT_EQ(shown_in_buffer(), "");
    EXPECT_EQ(logger->info, nullptr);
    EXPECT_EQ(logger->info_size, 1024u * 1024);
    DTLogger_SetInfoSize(logger, 2000);
    EXPECT_EQ(DTLogger_Write(logger, 1, "x"), 28);
    DTLogger_SetInfoSize(logger, 1);
    EXPECT_EQ(logger->info->max_size + logger->info_size, 2048u + 2000);
    // A text that never fits: the stamp is kept and the sum says so. A length has 16 bits.
    EXPECT_EQ(DTLogger_Write(logger, 1, std::string(3000, 'x').c_str()), 23 - 1);
    EXPECT_EQ(DTLogger_Write(logger, 1, std::string(65536 + 5, 'x').c_str()), 23 + 9);
}

TEST_F(Logger, KeepsTextsForItsUserCutAtTheirFields) {
    const std::string text(600, 't');
    DTLogger_Header(logger, "");
    EXPECT_EQ(logger->header_top, 0);
    for (int twice = 0; twice < 2; ++twice) DTLogger_Tail(logger);
    EXPECT_EQ(logger->header_top, -1);
    for (int i = 0; i <= 100; ++i) DTLogger_Header(logger, i < 100 ? "short" : text.c_str());
    EXPECT_EQ(logger->headers[98] + std::string(logger->headers[99]), "short" + text.substr(551));
    DTLogger_SetUDP(logger, text.c_str(), 99);
    EXPECT_EQ(logger->udp_addr + std::to_string(logger->udp_port), text.substr(581) + "99");
    DTLogger_SetFileName(logger, text.c_str());
    EXPECT_EQ(logger->file_name, text.substr(0, 499));
}
