#include "support/platform.h"
#include "support/store.h"

#include <dt/foundation.h>

#include <random>
#include <regex>

namespace {

std::string many(size_t count, char letter = 'v') { return std::string(count, letter); }

int32_t append(DTInfo *store, const std::string &key, const std::string &value) {
    return DTInfo_Append(store, key.data(), static_cast<uint8_t>(key.size()), value.data(),
                         static_cast<uint16_t>(value.size()));
}

// A store of at most 1024 bytes, with records of the given sizes.
DTInfo *store_of(std::initializer_list<size_t> sizes) {
    DTInfo *store = DTInfo_New(1024);
    char key = 'a';
    for (const size_t size : sizes) append(store, many(1, key++), many(size - 4));
    return store;
}

std::string keys_of(DTInfo *store) {
    std::string keys;
    for (const auto &record : records_of(store)) keys += record.first;
    return keys;
}

struct InfoStore : RecordsTest {};

} // namespace

TEST_F(InfoStore, LaysOutARecord) {
    DTInfo *store = DTInfo_New(0);
    EXPECT_EQ(DTInfo_Write(store, "k", "value"), 9);
    EXPECT_EQ(DTInfo_Append2Message(store, "ab", 2, "12", 2, "345", 3), 1);
    EXPECT_EQ(DTMem_memcmp(store->memory, 0, "\1k\5\0value\2ab\5\00012345\xFF", 20), 0);
    EXPECT_STREQ(fault_of(store), nullptr);
}

TEST(InfoStoreTrace, ReportsItsGrowthInOrder) {
    DTInfo *store = DTInfo_New(2000);
    testing::internal::CaptureStdout();
    append(store, "k", many(1000));
    append(store, "k", many(100));  // grows
    append(store, "k", many(900));  // has room
    append(store, "k", many(2000)); // erases all others
    DTInfo_SetTrace(0);
    append(store, "k", many(2000));
    const std::string trace = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::regex_replace(trace, std::regex("addr: 0x.*"), "addr"),
              "size 104logger info addr\nmemory addr\nmemory size: 1024\nfree addr:   1004\n"
              "use  addr:   0\nmaxsize: 2048\nfreesize: 20\n"
              "add size 1024, new size 2048 freesize 1044\n"
              "logger info addr\nmemory addr\nmemory size: 2048\nfree addr:   1004\n"
              "use  addr:   0\nmaxsize: 2048\nfreesize: 1044\nsize 2004size 2004size 2004");
}

TEST_F(InfoStore, WithoutAMaximumItGrowsBy256KibAtMost) {
    DTInfo *store = DTInfo_New(0);
    for (int i = 0; i < 600; ++i) append(store, "k", many(1020));
    EXPECT_EQ(store->memory->size, 768u * 1024);
}

TEST_F(InfoStore, AFilterIsAPrefixThatNeverMatchesAcrossTheEnd) {
    DTInfo *store = store_of({500, 520, 4}); // the last with its empty value at the very end
    for (const char *key : {"log", "l", "e"}) append(store, key, "x");
    EXPECT_EQ(keys_of(store), "bclogle");
    EXPECT_EQ(records_of(store, "c"), (Records{{"c", ""}}));
    EXPECT_EQ(records_of(store, std::string("c\0\0\3", 4)), Records());
    EXPECT_EQ(records_of(store, "l"), (Records{{"log", "x"}, {"l", "x"}}));
    uint32_t pos = DTINFO_FIRST;
    for (const int found : {1, 0}) // a key of no length is a text
        EXPECT_EQ(DTInfo_Get(store, "log", 0, &pos, nullptr, nullptr, nullptr, nullptr), found);
}

TEST_F(InfoStore, RefusesWhatTheLayoutCannotHold) {
    DTInfo *store = DTInfo_New(1024 * 1024);
    const std::string key = many(254, 'k'), text = many(65536);
    EXPECT_EQ(append(store, key, many(65535)), 65535 + 254 + 3);
    EXPECT_EQ(append(store, key + "k", "v") + DTInfo_Write(store, (key + "kk").c_str(), "v"), -2);
    EXPECT_EQ(DTInfo_Write(store, nullptr, "v") + DTInfo_Write(store, "k", nullptr), -2);
    EXPECT_EQ(DTInfo_Append(store, nullptr, 1, "v", 1) + DTInfo_Append(store, "k", 1, nullptr, 1),
              -2);
    EXPECT_EQ(DTInfo_Write(store, "k", text.c_str()), -1);
    EXPECT_EQ(DTInfo_Append2Message(store, "k", 1, text.data(), 65535, "+", 1), 0);
    EXPECT_EQ(DTInfo_PackPre(store, "k", 1, 65536) + DTInfo_PackPre(store, text.c_str(), 0, 1), 0);
    store->free_size = 1024 * 1024;
    EXPECT_EQ(append(store, "k", "v"), -1); // positions that cannot be
}

TEST_F(InfoStore, AValueToBeWrittenLaterIsFreeBytesUntilThen) {
    DTInfo *store = DTInfo_New(1024);
    append(store, "a", many(1000));
    ASSERT_EQ(DTInfo_PackPre(store, "b", 1, 500), 1); // in the place of the other
    const void *value = DTMem_Get(store->memory, store->free_addr);
    EXPECT_EQ(std::string(static_cast<const char *>(value), 500), std::string(500, '\xFF'));
}

TEST_F(InfoStore, IgnoreDropsAppendsInEachOnesWay) {
    DTInfo *store = DTInfo_New(1024);
    DTInfo_Ignore(store, 1);
    EXPECT_EQ(append(store, "b", "1") + DTInfo_Write(store, "b", "1"), 0);
    EXPECT_EQ(DTInfo_Append2Message(store, "b", 1, "1", 1, "2", 1), 1);
    EXPECT_EQ(DTInfo_PackPre(store, "b", 1, 1), 0);
    EXPECT_EQ(keys_of(store), "");
    DTInfo_ReSize(store, 4096);
    EXPECT_EQ(store->ignore, 1u);
}

TEST_F(InfoStore, ResizingKeepsOrEmpties) {
    DTInfo *store = DTInfo_New(2048);
    append(store, "a", many(1500));
    EXPECT_EQ(DTInfo_ReSize(store, 1025), 1); // the same after rounding
    EXPECT_EQ(keys_of(store), "a");
    EXPECT_EQ(DTInfo_ReSize(store, 0), 1);
    EXPECT_EQ(store->memory->size + store->free_addr, 2048u);
    EXPECT_EQ(DTInfo_ReSize(store, 2000), 1); // not above the block: a new one
    EXPECT_EQ(store->memory->size + store->max_size, 1024u + 2048);
    EXPECT_EQ(DTInfo_ReSize(store, UINT32_MAX), 0); // rounding wraps
    EXPECT_STREQ(fault_of(store), nullptr);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTInfo_ReSize(store, 1024), 0); // a store without a block
    EXPECT_EQ(append(store, "a", "1"), -1);
    EXPECT_EQ(keys_of(store), "");
    platform.allocations_work();
    EXPECT_EQ(DTInfo_ReSize(store, 1024), 1);
    EXPECT_EQ(append(store, "a", "1"), 5);
}

TEST_F(InfoStore, KeepsTwoThousandFlags) {
    DTInfo *store = DTInfo_New(0);
    DTInfo_SetFlag(store, 1999, 1);
    DTInfo_SetFlag(store, 2000, 3); // out of range: nothing
    EXPECT_EQ(store->flags[249], 0x80);
    DTInfo_SetFlag(store, 0, 2);
    for (int twice = 0; twice < 2; ++twice) DTInfo_SetFlag(store, 9, 7);
    EXPECT_EQ(store->flags[1], 0xFD);
    EXPECT_EQ(DTInfo_GetFlag(store, 9) * 10 + DTInfo_GetFlag(store, 1234), 1);
    DTInfo_SetFlag(store, 0, 3);
    EXPECT_EQ(DTInfo_GetFlag(store, 1234) * 10 + DTInfo_GetFlag(store, 2000), 1);
}

// Random appends, seeded. Multiples of 16 fill the ring exactly every now and then. A maximum of 0
// is none; what is larger than the maximum, or cannot grow, changes nothing.
TEST_F(InfoStore, HoldsTheNewestRecordsLikeAModel) {
    std::mt19937 random(19700101);
    const auto below = [&](size_t limit) { return static_cast<unsigned>(random() % limit); };
    for (uint32_t round = 0; round < 24; ++round) {
        const uint32_t max_size = round % 8 * 1024;
        DTInfo *store = DTInfo_New(max_size);
        LapModel model(max_size != 0 ? max_size : SIZE_MAX);
        for (uint32_t step = 0; step < 400; ++step) {
            const char letter = static_cast<char>('a' + step % 26);
            const std::string key = many(below(5), letter);
            const size_t longest = below(20) != 0 ? 8 : max_size != 0 ? max_size / 16 + 1 : 300;
            const size_t size = 16 * (below(longest) + 1) - below(2) * below(9);
            const std::string value = many(size - key.size() - 3, letter);
            platform.fail_only(1 + below(3));
            const int32_t stored = append(store, key, value);
            const bool fits = size <= model.size && !platform.fails();
            platform.allocations_work();
            ASSERT_EQ(stored, fits ? static_cast<int32_t>(size) : -1);
            if (fits) model.append(key, value);
            ASSERT_EQ(store->free_addr, model.at);
            ASSERT_LE(store->memory->size, model.size);
            if (step % 4 != 0) continue;
            ASSERT_EQ(records_of(store), model.records()) << step;
            // A walk that stood anywhere when records were erased stays inside the block and ends.
            ASSERT_LT(walk(store, "", below(store->memory->size + 99), 9999).size(), 9999u);
            EXPECT_STREQ(fault_of(store), nullptr);
        }
        DTInfo_Release(store);
    }
    EXPECT_EQ(platform.blocks, 0u);
}
