#include "support/clock.h"
#include "support/platform.h"
#include "support/store.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr char stamp[] = "2014/11/16 18:44:43";
constexpr char short_stamp[] = "11/16 18:44:43 ";

class Logger : public testing::Test {
protected:
    void SetUp() override {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
    }
    void TearDown() override { DTLogger_Release(logger); }

    DTLogger *logger = DTLogger_New(255);
};

std::string shown_in_buffer(DTLogger *logger) {
    DTBuf *buf = DTBuf_New(1, 10, 0);
    DTLogger_ShowToBuf(logger, buf);
    const std::string text(buf->data, buf->data + DTBuf_Length(buf));
    DTBuf_Release(buf);
    return text;
}

} // namespace

TEST_F(Logger, StoresStampAndTextUnderTheLevelsKey) {
    EXPECT_EQ(DTLogger_Write(logger, 0, "zero"), 23 + 8);
    EXPECT_EQ(DTLogger_Write(logger, 1, ""), 23 + 4);
    EXPECT_EQ(DTLogger_Write(logger, 2, "two"), 23 + 7);
    EXPECT_EQ(DTLogger_Write(logger, 3, "three"), 23 + 9);
    EXPECT_EQ(DTLogger_Write(logger, UINT32_MAX, "four"), 23 + 8);
    EXPECT_THAT(records_of(logger->info),
                ElementsAre(Pair("l", stamp), Pair("l", "zero"), Pair("l", stamp), Pair("l", ""),
                            Pair("w", stamp), Pair("w", "two"), Pair("e", stamp),
                            Pair("e", "three"), Pair("l", stamp), Pair("l", "four")));
}

TEST_F(Logger, EchoesOnlyTheEndsWhenAsked) {
    DTLogger_Write(logger, 1, "one");
    DTLogger_Write(logger, 2, "two");
    DTLogger_Write(logger, 4, "four");
    EXPECT_THAT(platform.prints, IsEmpty());
    DTLogger_Write(logger, 0, "zero,");
    DTLogger_Write(logger, 3, "three");
    DTLogger_Write(logger, 3, "");
    EXPECT_THAT(platform.prints, ElementsAre("zero,three\n", "\n"));
}

TEST_F(Logger, EchoesAllLevelsButNoEmptyTexts) {
    DTLogger_SetFlag(logger, DTLOGGER_ECHO | DTLOGGER_STORE | DTLOGGER_LEVEL0 | DTLOGGER_LEVEL1);
    EXPECT_EQ(DTLogger_Write(logger, 1, "one"), 30);
    EXPECT_EQ(DTLogger_Write(logger, 1, ""), 27);
    EXPECT_EQ(DTLogger_Write(logger, 2, "two"), -1);
    EXPECT_EQ(DTLogger_Write(logger, 3, "three"), -1);
    DTLogger_Write(logger, 0, "zero,");
    DTLogger_Write(logger, 9, "nine");
    EXPECT_THAT(platform.prints, ElementsAre("one\n", "zero,nine\n"));
    DTLogger_SetFlag(logger, DTLOGGER_LEVEL1 | DTLOGGER_ECHO);
    EXPECT_EQ(DTLogger_Write(logger, 1, "not kept"), -1);
    DTLogger_SetFlag(logger, DTLOGGER_LEVEL1);
    EXPECT_EQ(DTLogger_Write(logger, 1, "nothing"), -1);
    EXPECT_THAT(platform.prints, ElementsAre("one\n", "zero,nine\n", "not kept\n"));
}

TEST_F(Logger, AppendAsksNoOptionBits) {
    DTLogger_SetFlag(logger, 0);
    DTLogger_Append(logger, 0, 99, "zero");
    DTLogger_Append(logger, 0, 99, "");
    DTLogger_Append(logger, 3, 99, "three");
    EXPECT_THAT(platform.prints, ElementsAre("zero\n"));
    EXPECT_THAT(records_of(logger->info),
                ElementsAre(Pair("l", short_stamp), Pair("l", "zero"), Pair("l", short_stamp),
                            Pair("l", ""), Pair("e", short_stamp), Pair("e", "three")));
}

TEST_F(Logger, IgnoreComesBeforeEverythingElse) {
    DTLogger_Ignore(logger, 1);
    DTLogger_SetFlag(logger, 0);
    EXPECT_EQ(DTLogger_Write(logger, 0, "dropped"), 0);
    DTLogger_Append(logger, 0, 0, "dropped");
    EXPECT_THAT(platform.prints, IsEmpty());
    EXPECT_EQ(logger->info, nullptr);
}

TEST_F(Logger, ShowsEachRecordOnALineOfItsOwn) {
    DTLogger_ShowInfo(logger, 1); // no store yet
    DTLogger_Write(logger, 1, "one");
    DTLogger_Write(logger, 2, "");
    const std::string expected = std::string(stamp) + "\none\n" + stamp + "\n\n";
    DTLogger_ShowInfo(logger, 1);
    EXPECT_EQ(platform.take_console(), expected);
    EXPECT_EQ(shown_in_buffer(logger), expected);
    DTLogger_ShowToBuf(logger, reinterpret_cast<DTBuf *>(100));
    EXPECT_EQ(platform.take_console(), expected);
    DTLogger_ClearInfo(logger);
    EXPECT_EQ(shown_in_buffer(logger), "");
}

TEST_F(Logger, PausesAfterTheFirstOfEachHundredRecords) {
    for (int line = 0; line < 125; ++line) DTLogger_Write(logger, 1, "x");
    DTLogger_ShowInfo(logger, 1);
    EXPECT_THAT(platform.delays, ElementsAre(1000, 1000, 1000));
    platform.delays.clear();
    DTLogger_ClearInfo(logger);
    for (int line = 0; line < 50; ++line) DTLogger_Write(logger, 1, "x");
    DTLogger_ShowInfo(logger, 1);
    EXPECT_THAT(platform.delays, ElementsAre(1000));
}

// 65,536 is no multiple of 100: the 16-bit count starts again and pauses there.
TEST_F(Logger, CountsShownRecordsIn16Bits) {
    DTLogger_SetInfoSize(logger, 0);
    for (int line = 0; line < 32769; ++line) DTLogger_Append(logger, 1, 0, "");
    DTBuf *buf = DTBuf_New(1, 1 << 20, 0);
    DTLogger_ShowToBuf(logger, buf);
    EXPECT_EQ(platform.delays.size(), 656u + 1);
    DTBuf_Release(buf);
}

TEST_F(Logger, MakesItsStoreWithTheFirstLine) {
    DTLogger_SetInfoSize(logger, 2000);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTLogger_Write(logger, 1, "x"), -2);
    DTLogger_Append(logger, 1, 0, "x");
    platform.allocations_work();
    EXPECT_EQ(DTLogger_Write(logger, 1, "x"), 28);
    EXPECT_EQ(logger->info->max_size, 2048u);
    DTLogger_SetInfoSize(logger, 1);
    EXPECT_EQ(logger->info_size, 2000u);
    // A text that never fits: the stamp is kept and the sum says so.
    EXPECT_EQ(DTLogger_Write(logger, 1, std::string(3000, 'x').c_str()), 23 - 1);
}

TEST_F(Logger, KeepsAStackOfHeaders) {
    DTLogger_Tail(logger);
    EXPECT_EQ(logger->header_top, -1);
    for (int i = 0; i <= 100; ++i) DTLogger_Header(logger, std::to_string(i).c_str());
    EXPECT_EQ(logger->header_top, 99);
    EXPECT_STREQ(logger->headers[99], "100");
    EXPECT_STREQ(logger->headers[98], "98");
    DTLogger_Tail(logger);
    DTLogger_Header(logger, std::string(60, 'h').c_str());
    EXPECT_EQ(logger->headers[99], std::string(49, 'h'));
}

TEST_F(Logger, CutsTextsAtTheirFields) {
    DTLogger_SetUDP(logger, "1234567890123456789012345", 99);
    EXPECT_STREQ(logger->udp_addr, "1234567890123456789");
    EXPECT_EQ(logger->udp_port, 99u);
    DTLogger_SetFileName(logger, std::string(600, 'f').c_str());
    DTLogger_SetFileName(logger, nullptr);
    EXPECT_EQ(logger->file_name, std::string(499, 'f'));
}

TEST_F(Logger, ReleasesItsStoreAndItsDescriptor) {
    DTLogger *other = DTLogger_New(255);
    DTLogger_Write(other, 1, "x");
    other->fd = open("/dev/null", O_RDONLY);
    const int fd = other->fd;
    const unsigned blocks = platform.blocks;
    DTLogger_Release(other);
    EXPECT_EQ(platform.blocks, blocks - 3);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Logger, AnswersNullAndExhaustedMemory) {
    EXPECT_EQ(DTLogger_Write(nullptr, 0, "x"), -1);
    EXPECT_EQ(DTLogger_Write(logger, 0, nullptr), -1);
    DTLogger_Append(nullptr, 0, 0, "x");
    DTLogger_Append(logger, 0, 0, nullptr);
    DTLogger_ShowInfo(nullptr, 1);
    DTLogger_Header(nullptr, "x");
    DTLogger_Tail(nullptr);
    DTLogger_SetFlag(nullptr, 1);
    DTLogger_Ignore(nullptr, 1);
    DTLogger_SetInfoSize(nullptr, 1);
    DTLogger_ClearInfo(nullptr);
    DTLogger_SetUDP(nullptr, "x", 1);
    DTLogger_SetFileName(nullptr, "x");
    DTLogger_Release(nullptr);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTLogger_New(255), nullptr);
    EXPECT_EQ(logger->info, nullptr);
}
