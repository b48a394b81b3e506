#include "support/clock.h"
#include "support/network.h"

#include <dt/foundation.h>
#include <gtest/gtest.h>

#include <errno.h>

namespace {

constexpr time_t an_early_morning = 1199516589; // 2008-01-05 07:03:09
constexpr char every[] = "YYYY/MM/DD HH:MI:SS";

std::string format(const char *pattern, time_t time) {
    fake_clock.stand_at(a_sunday_evening);
    char text[100];
    return DTTime_Format(text, pattern, time);
}

} // namespace

TEST(TimeText, WritesEachTokenTheLongestFirst) {
    EXPECT_EQ(format(every, a_sunday_evening), "2014/11/16 18:44:43");
    EXPECT_EQ(format("YY-MM-DD HH:MI:SS ", an_early_morning), "08-01-05 07:03:09 ");
    EXPECT_EQ(format("yy-mm-dd hh:mi:ss", an_early_morning), "8-1-5 7:3:9");
    EXPECT_EQ(format("YYYYY YYY MIN", a_sunday_evening), "2014Y 14Y 44N");
    EXPECT_EQ(format("Mm mI m I D %s", a_sunday_evening), "Mm mI m I D %s");
}

TEST(TimeText, NoTimeMeansNow) {
    EXPECT_EQ(format(every, 0), "2014/11/16 18:44:43");
    EXPECT_EQ(format(every, -1), "1969/12/31 23:59:59");
    EXPECT_EQ(DTTime_GetTime(-43), a_sunday_evening - 43);
}

TEST(TimeText, ATimeZoneThatChangesShowsInTheNextSecond) {
    EXPECT_EQ(format(every, 0), "2014/11/16 18:44:43");
    setenv("TZ", "EST5", 1);
    tzset();
    ++fake_clock.now;
    char text[sizeof every];
    EXPECT_STREQ(DTTime_Format(text, every, 0), "2014/11/16 13:44:44");
    EXPECT_STREQ(DTTime_Format(text, every, a_sunday_evening), "2014/11/16 13:44:43");
}

TEST(TimeText, ATimeThatCannotBeBrokenDownShowsAsZeros) {
    fake_clock.broken_local = true;
    EXPECT_EQ(format(every, 1), "1900/01/00 00:00:00");
}

// Nor do two digits of a year before 1900 need more room than their pattern.
TEST(TimeText, AdvancesByWhatALongYearTakes) {
    if (sizeof(time_t) == 4) GTEST_SKIP() << "the clock ends in 2038";
    EXPECT_EQ(format("YYYY-MM", static_cast<time_t>(253402387200)), "10000-01");
    EXPECT_EQ(format("YYYY", static_cast<time_t>(67768036191676799)), "2147485547"); // the last
    EXPECT_EQ(format("YYYY", static_cast<time_t>(-62325072000)), "-006");
    EXPECT_EQ(format("YY yy YYYY", static_cast<time_t>(-4418064000)), "29 29 1829");
}

TEST(Clock, CountsMicrosecondsIn32BitsAndSleepsMilliseconds) {
    static uint32_t slept;
    fake_clock.microseconds = int64_t{UINT32_MAX} + 6;
    EXPECT_EQ(DTTime_GetUTime(), 5u);
    fake_clock.sleeping = [](uint32_t microseconds) { slept = microseconds; };
    EXPECT_EQ(DTTime_Sleep(15), 0);
    EXPECT_EQ(slept, 15000u);
}

TEST(Sleep, TakesItsTimeEvenWhenItIsRefusedButNotWhenASignalEndsIt) {
    fake_clock.sleep_error = EINTR;
    EXPECT_EQ(DTTime_Sleep(2000), -1);
    EXPECT_THAT(network.waits, testing::IsEmpty());
    fake_clock.sleep_error = EPERM;
    EXPECT_EQ(DTTime_Sleep(15), -1);
    EXPECT_THAT(network.waits, testing::ElementsAre(15));
}
