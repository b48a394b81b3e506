#include "support/clock.h"

#include <dt/foundation.h>
#include <gmock/gmock.h>

namespace {

constexpr time_t an_early_morning = 1388905389; // 2014-01-05 07:03:09

std::string format(const char *pattern, time_t time) {
    fake_clock.stand_at(a_sunday_evening);
    char text[100];
    EXPECT_EQ(DTTime_Format(text, pattern, time), text);
    return text;
}

} // namespace

TEST(TimeText, WritesEachToken) {
    EXPECT_EQ(format("YYYY/MM/DD HH:MI:SS", a_sunday_evening), "2014/11/16 18:44:43");
    EXPECT_EQ(format("YY/MM/DD HH:MI:SS", a_sunday_evening), "14/11/16 18:44:43");
    EXPECT_EQ(format("mm/dd hh:mi:ss", an_early_morning), "1/5 7:3:9");
    EXPECT_EQ(format("MM/DD HH:MI:SS ", an_early_morning), "01/05 07:03:09 ");
    EXPECT_EQ(format("yy yy", an_early_morning - 6 * 365 * 86400), "8 8");
}

TEST(TimeText, TakesTheLongestTokenFirstAndCopiesTheRest) {
    EXPECT_EQ(format("YYYYY", a_sunday_evening), "2014Y");
    EXPECT_EQ(format("YYY", a_sunday_evening), "14Y");
    EXPECT_EQ(format("MIN Mm mI m I D", a_sunday_evening), "44N Mm mI m I D");
    EXPECT_EQ(format("", a_sunday_evening), "");
    EXPECT_EQ(format("at %s", a_sunday_evening), "at %s");
}

TEST(TimeText, NoTimeMeansNow) {
    EXPECT_EQ(format("YYYY/MM/DD HH:MI:SS", 0), "2014/11/16 18:44:43");
    EXPECT_EQ(format("YYYY/MM/DD HH:MI:SS", -1), "1969/12/31 23:59:59");
    EXPECT_EQ(DTTime_Now(), a_sunday_evening);
    EXPECT_EQ(DTTime_GetTime(-43), a_sunday_evening - 43);
}

TEST(TimeText, ATimeThatCannotBeBrokenDownShowsAsZeros) {
    fake_clock.broken_local = true;
    EXPECT_EQ(format("YYYY/MM/DD HH:MI:SS", 1), "1900/01/00 00:00:00");
}

TEST(TimeText, AdvancesByWhatALongYearTakes) {
    if (sizeof(time_t) == 4) GTEST_SKIP() << "the clock ends in 2038";
    const time_t far_off = static_cast<time_t>(int64_t{253402300800} + 86400); // 10000-01-02
    EXPECT_EQ(format("YYYY-MM", far_off), "10000-01");
    EXPECT_EQ(format("YYYY", static_cast<time_t>(67768036191676799)), "2147485547"); // the last
}

// Nor do they need more room than their pattern.
TEST(TimeText, TheLastDigitsOfAYearBefore1900HaveNoSign) {
    if (sizeof(time_t) == 4) GTEST_SKIP() << "the clock begins in 1901";
    EXPECT_EQ(format("YY yy YYYY", static_cast<time_t>(-4418064000)), "29 29 1829");
}

TEST(MicrosecondCounter, WrapsAt32Bits) {
    fake_clock.microseconds = UINT32_MAX;
    const uint32_t before = DTTime_GetUTime();
    EXPECT_EQ(before, UINT32_MAX);
    fake_clock.microseconds += 6;
    EXPECT_EQ(DTTime_GetUTime() - before, 6u);
}

TEST(Sleep, IsInMilliseconds) {
    static uint32_t slept;
    fake_clock.sleeping = [](uint32_t microseconds) { slept = microseconds; };
    EXPECT_EQ(DTTime_Sleep(15), 0);
    EXPECT_EQ(slept, 15000u);
}
