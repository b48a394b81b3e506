#include "support/platform.h"
#include "support/store.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

constexpr char stamp[] = "2014/11/16 18:44:43";

struct Logger : RecordsTest {
    DTLogger *logger = DTLogger_New(255);
    // What DTLogger_Write answers at each level.
    std::vector<int32_t> write(const std::vector<std::pair<uint32_t, const char *>> &lines) {
        std::vector<int32_t> answers;
        for (const auto &[level, text] : lines)
            answers.push_back(DTLogger_Write(logger, level, text));
        return answers;
    }
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
        return std::string(buf->data, buf->data + DTBuf_Length(buf));
    }
};

} // namespace

TEST_F(Logger, AcceptsEchoesAndStoresAsItsOptionsSay) {
    EXPECT_THAT(write({{0, "zero,"}, {1, ""}, {2, "two"}, {3, "three"}, {3, ""}, {4, "four"}}),
                ElementsAre(23 + 9, 23 + 4, 23 + 7, 23 + 9, 23 + 4, 23 + 8));
    EXPECT_EQ(stored(stamp), "l:@;l:zero,;l:@;l:;w:@;w:two;e:@;e:three;e:@;e:;l:@;l:four;");
    DTLogger_SetFlag(logger, DTLOGGER_ECHO | DTLOGGER_STORE | DTLOGGER_LEVEL0 | DTLOGGER_LEVEL1);
    EXPECT_THAT(write({{1, "one"}, {1, ""}, {2, "two"}, {3, "three"}, {0, "zero,"}, {9, "nine"}}),
                ElementsAre(30, 27, -1, -1, 32, 31));
    DTLogger_SetFlag(logger, DTLOGGER_LEVEL1 | DTLOGGER_ECHO);
    EXPECT_EQ(DTLogger_Write(logger, 1, "not kept"), -1);
    EXPECT_THAT(platform.prints, ElementsAre("zero,three\n", "\n", // 255 echoes 0 and 3
                                             "one\n", "zero,nine\n", "not kept\n"));
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
    write({{1, "one"}, {2, ""}});
    const std::string expected = std::string(stamp) + "\none\n" + stamp + "\n\n";
    DTLogger_ShowInfo(logger, 1);
    DTLogger_ShowToBuf(logger, reinterpret_cast<DTBuf *>(100));
    EXPECT_EQ(platform.take_console(), expected + expected);
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
