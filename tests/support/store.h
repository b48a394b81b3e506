// What a record store holds, and whether it keeps its own rules.
#pragma once

#include "support/ring.h"

Records records_of(DTInfo *store, const std::string &key = "");

// Fails the running test when the store is at fault.
void expect_sound(DTInfo *store);
