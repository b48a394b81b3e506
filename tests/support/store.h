// Stores of records, for a test.
#pragma once

#include "support/clock.h"
#include "support/ring.h"

#include <gtest/gtest.h>

inline Records records_of(DTInfo *store, const std::string &key = "") {
    constexpr size_t most = 100000;
    const Records all = walk(store, key, DTINFO_FIRST, most);
    EXPECT_LT(all.size(), most) << "a walk without an end";
    return all;
}

// Records are stamped with a Sunday evening, and stores do not report their growth.
struct RecordsTest : testing::Test {
    RecordsTest() {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
    }
};
