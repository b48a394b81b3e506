// What a record store holds, and whether it keeps its own rules.
#pragma once

#include "support/clock.h"
#include "support/ring.h"

#include <gtest/gtest.h>

Records records_of(DTInfo *store, const std::string &key = "");

// Fails the running test when the store is at fault.
void expect_sound(DTInfo *store);

// Records are stamped with a Sunday evening, and stores do not report their growth.
struct RecordsTest : testing::Test {
    RecordsTest() {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
    }
};
