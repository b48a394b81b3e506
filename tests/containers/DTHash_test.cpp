#include "support/story.h"

#include <map>
#include <random>
#include <string.h>

namespace {

// Far beyond the number of buckets, and reduced as an unsigned number: 'a' goes to bucket 6 of 7.
uint32_t by_letter(const void *key, uint32_t, uint32_t) {
    return 0xFFFFFF00u + *static_cast<const uint8_t *>(key);
}

// A table of entries of which each is a key and a value of two characters.
DTHash *table_of(std::initializer_list<const char *> wanted, uint32_t is_static) {
    DTHash *table = DTHash_NewEx(2, 2, 7, by_letter, is_static);
    for (const char *entry : wanted) EXPECT_EQ(DTHash_Set(table, entry, entry + 2), 1);
    return table;
}

std::string entries(DTHash *table) {
    std::string text;
    const DTHashMatch gather = [](const void *key, void *, void *all) {
        *static_cast<std::string *>(all) += std::string(static_cast<const char *>(key), 4) + " ";
        return 1;
    };
    EXPECT_EQ(DTHash_Find(table, gather, &text), nullptr);
    return text;
}

} // namespace

TEST(Hash, ReplacesInPlaceAndPutsNewEntriesFirst) {
    DTHash *table = table_of({"aa1.", "ab2.", "aa3.", "ba4."}, 0);
    EXPECT_EQ(entries(table), "ba4. ab2. aa3. ");
    void *value = table;
    EXPECT_EQ(DTHash_Get(table, nullptr, &value) + DTHash_Set(table, "ab", nullptr), 0);
    EXPECT_EQ(value, DTHash_Find(table, nullptr, nullptr));
    EXPECT_EQ(DTHash_Get(table, "ab", &value), 1);
    memcpy(value, "5.", 2);
    EXPECT_EQ(DTHash_Set(table, "ab", value), 1);    // from its own place
    EXPECT_EQ(DTHash_Get(table, "\0a", nullptr), 0); // bytes, not text
    const DTHashMatch five = [](const void *, void *at, void *) { return memcmp(at, "5.", 2); };
    EXPECT_EQ(memcmp(DTHash_Find(table, five, nullptr), "ab", 2), 0);
    EXPECT_EQ(entries(table), "ba4. ab5. aa3. ");
    DTHash_Delete(table, "ba");
    DTHash_Delete(table, "aa");
    DTHash_ShowDepth(table); // of each bucket that was used
    DTHash_Show(table);
    EXPECT_EQ(platform.console(), "pos=0,length=0\npos=6,length=1\n"
                                  "key=>\nformat:*2S\n0001[2S]=>\n61 62 \n"
                                  "result=>\nformat:*2S\n0001[2S]=>\n35 2E \n"
                                  "-----------------------------------------\n");
    EXPECT_EQ(platform.format, "*%dS");
}

TEST(Hash, StaticTablesKeepEverything) {
    DTHash *table = table_of({"aa1.", "ab2."}, 1);
    DTHash_Delete(table, "aa");
    DTHash_Release(table);
    EXPECT_EQ(entries(table), "ab2. aa1. ");
    EXPECT_EQ(platform.blocks, 4u); // table, buckets, one list, and the pool's chunk
}

TEST(Hash, RefusesSizesThatWrapAndATableWithoutBuckets) {
    const uint32_t too_many = UINT32_MAX / sizeof(void *) + 1;
    for (const auto &[size, buckets] : {std::pair(4u, 0u), {UINT32_MAX - 3, 1}, {4, too_many}})
        EXPECT_EQ(DTHash_New(4, size, buckets, nullptr), nullptr);
    EXPECT_EQ(platform.allocations, 0u);
    EXPECT_NE(DTHash_New(4, UINT32_MAX - 4, 1, nullptr), nullptr);
    DTHash *table = DTHash_New(4, 0, 1000, nullptr);  // by the mixing function
    EXPECT_EQ(DTHash_Set(table, "abcd", nullptr), 1); // a value without bytes
    EXPECT_NE(table->buckets[DTMD5_Hash("abcd", 4, 1000)], nullptr);
}

// Random entries, seeded, now and then without memory: what is not stored leaves no trace.
TEST(Hash, AgreesWithAMapOverARandomRun) {
    std::mt19937 random(20141116);
    std::map<uint16_t, uint32_t> model;
    DTHash *table = DTHash_New(2, 4, 13, nullptr);
    for (uint32_t value = 0; value < 20000; ++value) {
        const auto key = static_cast<uint16_t>(random() % 200);
        if (random() % 3 != 0) {
            const auto nth = static_cast<unsigned>(random() % 9); // of a list, an entry and a node
            platform.fail_only(nth);
            const bool stored = DTHash_Set(table, &key, &value);
            ASSERT_TRUE(stored || (nth >= 1 && nth <= 3 && model.count(key) == 0));
            if (stored) model[key] = value;
        } else {
            DTHash_Delete(table, &key);
            model.erase(key);
        }
        const auto other = static_cast<uint16_t>(random() % 200);
        void *found;
        ASSERT_EQ(DTHash_Get(table, &other, &found), static_cast<int>(model.count(other)));
        ASSERT_TRUE(!found || memcmp(found, &model[other], 4) == 0);
    }
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}
