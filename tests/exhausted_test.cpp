// Each allocation of the scenario fails in turn: nothing is lost, and what was refused succeeds
// when it is asked for again, with the same results to the byte.
#include "scenario.h"

#include "support/clock.h"
#include "support/platform.h"

#include <dt/dt.h>
#include <gtest/gtest.h>

namespace {

std::vector<uint32_t> kept() {
    return {platform.blocks, outstanding(0), outstanding(7), outstanding(COLLECT_OWNER_ID)};
}

} // namespace

TEST(ExhaustedMemory, IsAnsweredAndLeavesNoTrace) {
    fake_clock.stand_at(a_sunday_evening);
    DTInfo_SetTrace(0);
    DTPrint_ShowEx("", 0);     // the sink
    DTMem_Malloc_Static(0, 4); // and the pool stay
    const std::vector<uint32_t> before = kept();
    memory_returns = true;
    const unsigned asked = platform.allocations;
    const std::string expected = scenario();
    const unsigned needed = platform.allocations - asked;
    EXPECT_GT(needed, 150u);
    for (unsigned nth = 1; nth <= needed && !HasFailure(); ++nth) {
        SCOPED_TRACE(nth);
        memory_returns = true;
        platform.fail_only(nth);
        EXPECT_EQ(scenario(), expected);
        EXPECT_EQ(kept(), before);
        memory_returns = false;
        platform.fail_allocations_from(nth);
        scenario();
        platform.allocations_work();
        EXPECT_EQ(kept(), before);
    }
    memory_returns = true;
    EXPECT_EQ(scenario(), expected);
}
