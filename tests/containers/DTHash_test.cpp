#include "support/platform.h"

#include <dt/containers.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string.h>

namespace {

// The key's first character, far beyond the number of buckets: reduced as an unsigned number.
uint32_t by_letter(const void *key, uint32_t key_size, uint32_t bucket_count) {
    EXPECT_EQ(key_size * 10 + bucket_count, 27u);
    return 0xFFFFFF00u + *static_cast<const uint8_t *>(key);
}

// A table of entries of which each is a key and a value of two characters.
DTHash *table_of(std::initializer_list<const char *> wanted, uint32_t is_static = 0) {
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

std::string depths(const DTHash *table) {
    DTHash_ShowDepth(table);
    return platform.take_console();
}

} // namespace

TEST(Hash, ReplacesInPlaceAndPutsNewEntriesFirst) {
    DTHash *table = table_of({"aa1.", "ab2.", "aa3.", "ba4."});
    EXPECT_EQ(entries(table), "ba4. ab2. aa3. ");
    EXPECT_EQ(depths(table), "pos=0,length=1\npos=6,length=2\n"); // 0xFFFFFF61 % 7 is 6
    void *value;
    for (const char *absent : {"ac", "ca", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(DTHash_Get(table, absent, &value), 0);
        EXPECT_EQ(value, nullptr);
    }
    EXPECT_EQ(DTHash_Get(table, "ab", &value), 1);
    memcpy(value, "5.", 2);
    EXPECT_EQ(DTHash_Set(table, "ab", value), 1); // from its own place
    EXPECT_EQ(DTHash_Set(table, "\0b", "6."), 1);
    EXPECT_EQ(DTHash_Get(table, "\0a", nullptr), 0); // bytes, not text
    EXPECT_EQ(entries(table), std::string("\0b6. ba4. ab5. aa3. ", 20));
}

TEST(Hash, PlacesByTheMixingFunctionUnlessToldOtherwise) {
    DTHash *table = DTHash_New(4, 0, 1000, nullptr);
    EXPECT_EQ(DTHash_Set(table, "abcd", nullptr), 1); // a value without bytes
    EXPECT_EQ(depths(table), "pos=" + std::to_string(DTMD5_Hash("abcd", 4, 1000)) + ",length=1\n");
}

TEST(Hash, FindsByTheFirstMatchAndKeepsBucketsWithoutEntries) {
    DTHash *table = table_of({"ba2.", "ab1.", "aa2.", "bb2."});
    const DTHashMatch two = [](const void *, void *value, void *) {
        return memcmp(value, "2.", 2);
    };
    DTHash_Delete(table, "ac");
    for (const char *entry : {"bb2.", "ba2.", "aa2."}) {
        EXPECT_EQ(memcmp(DTHash_Find(table, two, nullptr), entry, 4), 0);
        DTHash_Delete(table, entry);
    }
    EXPECT_EQ(DTHash_Find(table, two, nullptr), nullptr);
    EXPECT_EQ(depths(table), "pos=0,length=0\npos=6,length=1\n");
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 1u); // the console's sink
}

TEST(Hash, ShowsEveryEntry) {
    const auto shown = [](const std::string &key, const std::string &value) {
        return "key=>\nformat:*2S\n0001[2S]=>\n" + key + "result=>\nformat:*3S\n0001[3S]=>\n" +
               value + "-----------------------------------------\n";
    };
    DTHash *table = DTHash_New(2, 3, 1, nullptr);
    DTHash_Set(table, "ab", "123");
    DTHash_Set(table, "\x00\xFF", "...");
    DTHash_Show(table);
    EXPECT_EQ(platform.take_console(),
              shown("00 FF \n", "2E 2E 2E \n") + shown("61 62 \n", "31 32 33 \n"));
}

TEST(Hash, StaticTablesKeepEverything) {
    DTHash *table = table_of({"aa1.", "ab2.", "aa3."}, 1);
    DTHash_Delete(table, "aa");
    DTHash_Release(table);
    EXPECT_EQ(entries(table), "ab2. aa3. ");
    EXPECT_EQ(platform.blocks, 4u); // table, buckets, one list, and the pool's chunk
}

TEST(Hash, RefusesSizesThatWrapAndATableWithoutBuckets) {
    EXPECT_EQ(DTHash_New(4, 4, 0, nullptr), nullptr);
    EXPECT_EQ(DTHash_New(4, UINT32_MAX - 3, 1, nullptr), nullptr);
    EXPECT_EQ(DTHash_New(4, 4, UINT32_MAX / sizeof(void *) + 1, nullptr), nullptr);
    EXPECT_EQ(platform.allocations, 0u);
    DTHash *table = DTHash_New(4, UINT32_MAX - 4, 1, nullptr);
    EXPECT_EQ(DTHash_Set(table, "abcd", "never read"), 0); // with its prefix it wraps
}

TEST(Hash, AnswersNull) {
    DTHash *table = table_of({});
    void *value = table;
    EXPECT_EQ(DTHash_Get(nullptr, "aa", &value) + DTHash_Set(nullptr, "aa", ".."), 0);
    EXPECT_EQ(value, table);
    EXPECT_EQ(DTHash_Set(table, nullptr, "..") + DTHash_Set(table, "aa", nullptr), 0);
    EXPECT_EQ(DTHash_Find(table, nullptr, nullptr), nullptr);
    DTHash_Delete(table, nullptr);
    DTHash_Delete(nullptr, "aa");
    DTHash_Release(nullptr);
    DTHash_Show(nullptr);
    DTHash_ShowDepth(nullptr);
}

// Each allocation in turn fails: nothing is lost, and the same store succeeds once memory is back.
TEST(Hash, SurvivesEveryFailingAllocation) {
    for (unsigned nth = 1; nth <= 5; ++nth) { // table, buckets, list, entry, node
        platform.fail_allocations_from(nth);
        DTHash *table = DTHash_New(2, 2, 7, by_letter);
        EXPECT_EQ(DTHash_Set(table, "aa", "1."), 0);
        EXPECT_EQ(platform.blocks, nth < 3 ? 0u : nth == 3 ? 2u : 3u); // no entry without its node
        platform.allocations_work();
        EXPECT_EQ(DTHash_Set(table, "aa", "1."), table ? 1 : 0);
        EXPECT_EQ(entries(table), table ? "aa1. " : "");
        DTHash_Release(table);
    }
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(Hash, AgreesWithAMapOverARandomRun) {
    std::mt19937 random(20141116);
    std::uniform_int_distribution<uint16_t> any_key(0, 199);
    std::map<uint16_t, uint32_t> model;
    DTHash *table = DTHash_New(2, 4, 13, nullptr);
    for (uint32_t value = 0; value < 20000; ++value) {
        const uint16_t key = any_key(random), other = any_key(random);
        if (random() % 3 != 0) {
            ASSERT_EQ(DTHash_Set(table, &key, &value), 1);
            model[key] = value;
        } else {
            DTHash_Delete(table, &key);
            model.erase(key);
        }
        void *found;
        ASSERT_EQ(DTHash_Get(table, &other, &found), static_cast<int>(model.count(other)));
        ASSERT_TRUE(!found || memcmp(found, &model[other], 4) == 0);
    }
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}
