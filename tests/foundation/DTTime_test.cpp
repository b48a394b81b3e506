#include "support/network.h"
#include "support/story.h"

#include <errno.h>
#include <random>

namespace {

constexpr char every[] = "YYYY/MM/DD HH:MI:SS";

std::string format(const char *pattern, time_t time) {
    char text[100];
    return DTTime_Format(text, pattern, time);
}

std::string in_zone(const char *zone) {
    zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
    return format(every, a_sunday_evening);
}

} // namespace

TEST(TimeText, AgreesWithTheSystemsAtAnyTime) {
    fake_clock.stand_at(a_sunday_evening);
    std::mt19937 random(20141116);
    for (int i = 0; i < 2000; ++i) {
        const time_t time = static_cast<int32_t>(random()) | 1; // 0 stands for now
        char text[100];
        strftime(text, sizeof text, "%Y %m %d %H %M %S ", localtime(&time));
        const std::string year(text, 5);
        ASSERT_EQ(format("YYYY YY MM DD HH MI SS ", time), year + (text + 2));
    }
    EXPECT_EQ(format("yy-mm-dd hh:mi:ss", 1199516589), "8-1-5 7:3:9");
    EXPECT_EQ(format("YYYYY YYY MIN", a_sunday_evening), "2014Y 14Y 44N");
    EXPECT_EQ(format("Mm mI m I D %s", a_sunday_evening), "Mm mI m I D %s");
    EXPECT_EQ(format(every, 0), "2014/11/16 18:44:43"); // now
    EXPECT_EQ(format(every, -1), "1969/12/31 23:59:59");
    EXPECT_EQ(DTTime_GetTime(-43), a_sunday_evening - 43);
    EXPECT_EQ(format(nullptr, 0) + (DTTime_Format(nullptr, every, 0) ? "an output" : ""), "");
    fake_clock.broken_local = true;
    EXPECT_EQ(format(every, 1), "1900/01/00 00:00:00");
}

// Within the second for which a text is kept. The names of a zone say nothing: two rules share
// them.
TEST(TimeText, AZoneThatChangesShowsAtOnce) {
    fake_clock.stand_at(a_sunday_evening);
    const std::string longer(60, 'X'), kept(45, 'X'); // and an hour that is cut off, below
    for (const std::string &zone :                    // behind its hour
         {std::string("19XST0XDT,J1,J365"), std::string("18XST0XDT,J1,J2"), std::string("13EST5"),
          std::string("18"), std::string("13EST5"), "19" + longer + "-1", "20" + longer + "-2",
          "08" + kept + "10", "17" + kept + "1"})
        EXPECT_EQ(in_zone(&zone[2]), "2014/11/16 " + zone.substr(0, 2) + ":44:43") << zone;
    const std::string odd = in_zone("XXX-3:21");
    EXPECT_NE(in_zone(nullptr), odd);
}

// Nor do two digits of a year before 1900 need more room than their pattern.
TEST(TimeText, AdvancesByWhatALongYearTakes) {
    if (sizeof(time_t) == 4) GTEST_SKIP() << "the clock ends in 2038";
    EXPECT_EQ(format("YYYY-MM", static_cast<time_t>(253402387200)), "10000-01");
    EXPECT_EQ(format("YYYY", static_cast<time_t>(67768036191676799)), "2147485547"); // the last
    EXPECT_EQ(format("YYYY", static_cast<time_t>(-62325072000)), "-006");
    EXPECT_EQ(format("YY yy YYYY", static_cast<time_t>(-4418064000)), "29 29 1829");
}

TEST(Clock, CountsMicrosecondsIn32BitsAndGoesOnWhereTimeEnds) {
    fake_clock.microseconds = int64_t{UINT32_MAX} + 6;
    EXPECT_EQ(DTTime_GetUTime(), 5u);
    fake_clock.ended = true;
    fake_clock.since_boot = int64_t{UINT32_MAX} + 999999;
    EXPECT_EQ(DTTime_GetUTime(), 999998u);
}

TEST(Sleep, TakesItsTimeEvenWhenItIsRefusedButNotWhenASignalEndsIt) {
    static uint32_t slept;
    fake_clock.sleeping = [](uint32_t microseconds) { slept = microseconds; };
    EXPECT_EQ(DTTime_Sleep(15), 0);
    EXPECT_EQ(slept, 15000u);
    fake_clock.sleep_error = EINTR;
    EXPECT_EQ(DTTime_Sleep(2000), -1);
    EXPECT_THAT(network.waits, testing::IsEmpty());
    fake_clock.sleep_error = EPERM;
    EXPECT_EQ(DTTime_Sleep(15), -1);
    EXPECT_THAT(network.waits, ElementsAre(15));
}
