#include "support/store.h"

Records records_of(DTInfo *store, const std::string &key) {
    constexpr size_t most = 100000;
    const Records all = walk(store, key, DTINFO_FIRST, most);
    EXPECT_LT(all.size(), most) << "a walk without an end";
    return all;
}

void expect_sound(DTInfo *store) { EXPECT_STREQ(fault_of(store), nullptr); }
