#include "support/story.h"

#include <setjmp.h>

namespace {

jmp_buf after_the_loop;
std::vector<uint32_t> sleeps; // microseconds
std::vector<int64_t> calls;   // the clock at each

// Time passes while the loop sleeps; the last sleep leaves it.
void run_passes(size_t count) {
    static size_t end;
    end = sleeps.size() + count;
    fake_clock.sleeping = [](uint32_t microseconds) {
        sleeps.push_back(microseconds);
        fake_clock.microseconds += microseconds;
        if (sleeps.size() == end) longjmp(after_the_loop, 1);
    };
    if (setjmp(after_the_loop) == 0) DTTimer_Loop();
}

void set_clock(int64_t milliseconds) { fake_clock.microseconds = milliseconds * 1000; }

int32_t keep_on(DTTimer *) {
    calls.push_back(fake_clock.microseconds / 1000);
    return 1;
}

} // namespace

// Those without a callback stay silent, and so does what is no timer at all.
TEST(Timer, RunsOneIntervalAfterItsLastRunOrWhenTheClockStartsAgain) {
    set_clock(5000);
    ASSERT_EQ(DTTimer_Regist(nullptr, 0), 1);
    DTTimer_Regist(keep_on, 1000);
    DTTimer_Regist(keep_on, UINT32_MAX);
    DTList_Append(g_DTTimer_List, 0);
    run_passes(10);
    set_clock(6050);
    run_passes(23);
    set_clock(4294400);
    run_passes(1);
    set_clock(4294968); // microseconds wrap to 704
    run_passes(1);
    EXPECT_EQ(calls, (std::vector<int64_t>{6050, 7050, 8050, 4294400, 4294968}));
    EXPECT_EQ(sleeps, std::vector<uint32_t>(35, 100000));
    EXPECT_EQ(console_of(DTTimer_Show), "current tm=100\nlast=0,interval=1000,status=1,times=5\n"
                                        "last=5000,interval=-1,status=1,times=0\n");
}

// Callback, then status, then last, then times; the pass's start counts, read once.
TEST(Timer, IsUpdatedBehindItsCallbackWithTheStartOfThePass) {
    set_clock(100);
    static std::vector<int64_t> seen;
    const auto slow = [](DTTimer *self) {
        seen.insert(seen.end(), {self->status, self->last, self->times});
        fake_clock.microseconds += 5000;
        return self->times < 2 ? 7 : 0;
    };
    DTTimer_Regist(slow, 0);
    DTTimer_Regist(keep_on, 5);
    run_passes(4);
    EXPECT_EQ(seen, (std::vector<int64_t>{1, 100, 0, 1, 100, 1, 1, 205, 2}));
    // Judged by the pass's start although the callback before it took its time.
    EXPECT_EQ(calls, (std::vector<int64_t>{210, 315, 415}));
    EXPECT_EQ(console_of(DTTimer_Show), "current tm=515\nlast=310,interval=0,status=0,times=3\n"
                                        "last=415,interval=5,status=1,times=3\n");
}

// What a callback registers runs in the next pass. In another list the first takes itself off, and
// is written to after its call all the same: the third comes to the place of the second, which
// takes the whole list away.
TEST(Timer, CallbacksMayChangeTheList) {
    set_clock(0);
    run_passes(1); // nobody has registered yet
    EXPECT_EQ(console_of(DTTimer_Show), "current tm=100\n");
    DTTimer_Regist([](DTTimer *) { return int32_t{DTTimer_Regist(keep_on, 0) - 1}; }, 0);
    run_passes(3);
    g_DTTimer_List = nullptr;
    static uintptr_t first;
    DTTimer_Regist([](DTTimer *) { return first = DTList_Popup(g_DTTimer_List), 0; }, 0);
    for (int i = 0; i < 3; ++i)
        DTTimer_Regist([](DTTimer *self) { return g_DTTimer_List = nullptr, keep_on(self); }, 0);
    run_passes(2);
    EXPECT_EQ(calls, (std::vector<int64_t>{200, 300, 400}));
    const DTTimer *timer = reinterpret_cast<DTTimer *>(first);
    EXPECT_EQ(timer->times * 10 + timer->status, 10);
}

// By years, forwards and backwards, before 1970 and past 2038 and 2106, and to where time ends:
// each timer goes on, an interval later at the latest.
TEST(Timer, GoesOnWhenTheClockIsSet) {
    set_clock(1416163483000);
    DTTimer_Regist(keep_on, 700);
    const int64_t seconds[] = {1416163484,  2147483647, 1416163482, 4294967295, 2147483640,
                               -2147483648, 4102444800, 0,          1262304000, 2524608000};
    for (const int64_t second : seconds) {
        set_clock(second * 1000 + 999);
        const size_t before = calls.size();
        run_passes(9);
        EXPECT_GE(calls.size(), before + 1) << second;
        EXPECT_LE(calls.size(), before + 3) << second; // milliseconds may start again, too
    }
}
