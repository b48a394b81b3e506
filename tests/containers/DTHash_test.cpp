#include "support/platform.h"

#include <dt/containers.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string.h>
#include <string>

namespace {

constexpr uint32_t buckets = 7;

struct HashCall {
    std::string key;
    uint32_t bucket_count;
} last_call;

// The key's first character, far beyond the number of buckets: reduced as an unsigned number.
uint32_t by_letter(const void *key, uint32_t key_size, uint32_t bucket_count) {
    last_call = {std::string(static_cast<const char *>(key), key_size), bucket_count};
    return 0xFFFFFF00u + *static_cast<const uint8_t *>(key);
}

uint32_t all_together(const void *, uint32_t, uint32_t) { return 3; }

// Keys and values of two characters.
DTHash *letters(DTHashFunction hash, uint32_t is_static = 0) {
    return DTHash_NewEx(2, 2, buckets, hash, is_static);
}

std::string get(const DTHash *table, const char *key) {
    void *value = &last_call;
    const int found = DTHash_Get(table, key, &value);
    EXPECT_EQ(found != 0, value != nullptr);
    return found ? std::string(static_cast<char *>(value), table->value_size) : "absent";
}

// Every entry in the table's order, as "key=value ".
int gather(const void *key, void *value, void *text) {
    const std::string entry(static_cast<const char *>(key), 2);
    *static_cast<std::string *>(text) += entry + "=" + static_cast<char *>(value)[0] + " ";
    return 1;
}

std::string entries(DTHash *table) {
    std::string text;
    EXPECT_EQ(DTHash_Find(table, gather, &text), nullptr);
    return text;
}

int has_value(const void *, void *value, void *argument) { return memcmp(value, argument, 2); }

std::string depths(const DTHash *table) {
    platform.take_console();
    DTHash_ShowDepth(table);
    return platform.take_console();
}

} // namespace

TEST(Hash, ReplacesInPlaceAndPutsNewEntriesFirst) {
    DTHash *table = letters(all_together);
    EXPECT_EQ(DTHash_Set(table, "aa", "1."), 1);
    EXPECT_EQ(DTHash_Set(table, "bb", "2."), 1);
    EXPECT_EQ(DTHash_Set(table, "aa", "3."), 1);
    EXPECT_EQ(entries(table), "bb=2 aa=3 ");
    EXPECT_EQ(depths(table), "pos=3,length=2\n");
    EXPECT_EQ(get(table, "aa"), "3.");
    EXPECT_EQ(get(table, "ab"), "absent"); // its bucket exists
    EXPECT_EQ(DTHash_Set(table, "\0a", "0."), 1);
    EXPECT_EQ(get(table, "\0b"), "absent"); // bytes, not text
    void *value;
    ASSERT_EQ(DTHash_Get(table, "bb", &value), 1);
    memcpy(value, "4.", 2);
    EXPECT_EQ(get(table, "bb"), "4.");
    EXPECT_EQ(DTHash_Set(table, "bb", value), 1); // from its own place
    EXPECT_EQ(get(table, "bb"), "4.");
    DTHash_Release(table);
}

TEST(Hash, AsksTheCallersFunctionAndReducesItsAnswerUnsigned) {
    DTHash *table = letters(by_letter);
    EXPECT_EQ(DTHash_Set(table, "ab", "1."), 1);
    EXPECT_EQ(last_call.key, "ab");
    EXPECT_EQ(last_call.bucket_count, buckets);
    EXPECT_EQ(DTHash_Set(table, "ba", "2."), 1);
    EXPECT_EQ(depths(table), "pos=0,length=1\npos=6,length=1\n"); // 0xFFFFFF61 % 7 is 6
    EXPECT_EQ(get(table, "ca"), "absent");                        // its bucket does not exist
    DTHash_Release(table);
}

TEST(Hash, PlacesByTheMixingFunctionUnlessToldOtherwise) {
    DTHash *table = DTHash_New(4, 0, 1000, nullptr);
    std::map<uint32_t, int> expected;
    for (uint32_t key = 0; key < 50; ++key) {
        EXPECT_EQ(DTHash_Set(table, &key, nullptr), 1); // values without bytes
        ++expected[DTMD5_Hash(&key, 4, 1000)];
    }
    std::string text;
    for (const auto &[bucket, count] : expected)
        text += "pos=" + std::to_string(bucket) + ",length=" + std::to_string(count) + "\n";
    EXPECT_EQ(depths(table), text);
    DTHash_Release(table);
}

TEST(Hash, FindsByTheFirstMatchOverAllBuckets) {
    DTHash *table = letters(by_letter);
    char two[] = "2.";
    EXPECT_EQ(DTHash_Find(table, has_value, two), nullptr);
    for (const char *entry : {"ba2.", "ab1.", "aa2.", "bb2."}) DTHash_Set(table, entry, entry + 2);
    EXPECT_EQ(entries(table), "bb=2 ba=2 aa=2 ab=1 ");
    for (const char *entry : {"bb2.", "ba2.", "aa2."}) {
        EXPECT_EQ(memcmp(DTHash_Find(table, has_value, two), entry, 4), 0);
        DTHash_Delete(table, entry);
    }
    EXPECT_EQ(DTHash_Find(table, has_value, two), nullptr);
    DTHash_Release(table);
}

TEST(Hash, KeepsABucketWhoseLastEntryIsDeleted) {
    DTHash *table = letters(all_together);
    for (const char *key : {"aa", "bb", "cc"}) DTHash_Set(table, key, "..");
    DTHash_Delete(table, "zz");
    DTHash_Delete(table, "bb");
    EXPECT_EQ(entries(table), "cc=. aa=. ");
    DTHash_Delete(table, "aa");
    DTHash_Delete(table, "cc");
    DTHash_Delete(table, "cc");
    EXPECT_EQ(depths(table), "pos=3,length=0\n");
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 1u); // the console's sink
}

TEST(Hash, ShowsEveryEntry) {
    DTHash *table = DTHash_New(4, 18, 1, nullptr);
    DTHash_Set(table, "abcd", "0123456789ABCDEF_");
    DTHash_Set(table, "\x00\xFF\x7F\x80", "................:");
    platform.take_console();
    DTHash_Show(table);
    EXPECT_EQ(platform.take_console(), "key=>\n"
                                       "format:*4S\n"
                                       "0001[4S]=>\n"
                                       "00 FF 7F 80 \n"
                                       "result=>\n"
                                       "format:*18S\n"
                                       "0001[18S]=>\n"
                                       "2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E \n"
                                       "3A 00 \n"
                                       "-----------------------------------------\n"
                                       "key=>\n"
                                       "format:*4S\n"
                                       "0001[4S]=>\n"
                                       "61 62 63 64 \n"
                                       "result=>\n"
                                       "format:*18S\n"
                                       "0001[18S]=>\n"
                                       "30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46 \n"
                                       "5F 00 \n"
                                       "-----------------------------------------\n");
    DTHash_Release(table);
}

TEST(Hash, StaticTablesKeepEverything) {
    DTHash *table = letters(all_together, 1);
    EXPECT_EQ(DTHash_Set(table, "aa", "1."), 1);
    EXPECT_EQ(DTHash_Set(table, "bb", "2."), 1);
    EXPECT_EQ(DTHash_Set(table, "aa", "3."), 1);
    EXPECT_EQ(platform.blocks, 4u); // table, buckets, one list, and the pool's chunk
    DTHash_Delete(table, "aa");
    DTHash_Release(table);
    EXPECT_EQ(entries(table), "bb=2 aa=3 ");
    EXPECT_EQ(platform.blocks, 4u);
}

TEST(Hash, RefusesSizesThatWrapAndATableWithoutBuckets) {
    EXPECT_EQ(DTHash_New(4, 4, 0, nullptr), nullptr);
    EXPECT_EQ(DTHash_New(4, UINT32_MAX - 3, 1, nullptr), nullptr);
    EXPECT_EQ(DTHash_New(UINT32_MAX, UINT32_MAX, 1, nullptr), nullptr);
    EXPECT_EQ(DTHash_New(4, 4, UINT32_MAX / sizeof(void *) + 1, nullptr), nullptr);
    EXPECT_EQ(platform.allocations, 0u);
    DTHash *table = DTHash_New(4, UINT32_MAX - 4, 1, nullptr);
    EXPECT_EQ(DTHash_Set(table, "abcd", "never read"), 0); // with its prefix it wraps
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(Hash, NullsAreAnswered) {
    DTHash *table = letters(nullptr);
    int untouched;
    void *value = &untouched;
    EXPECT_EQ(DTHash_Get(nullptr, "aa", &value), 0);
    EXPECT_EQ(value, &untouched);
    EXPECT_EQ(DTHash_Get(table, nullptr, &value), 0);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(DTHash_Set(nullptr, "aa", ".."), 0);
    EXPECT_EQ(DTHash_Set(table, nullptr, ".."), 0);
    EXPECT_EQ(DTHash_Set(table, "aa", nullptr), 0);
    EXPECT_EQ(DTHash_Set(table, "aa", ".."), 1);
    EXPECT_EQ(DTHash_Get(table, "aa", nullptr), 1);
    EXPECT_EQ(DTHash_Find(nullptr, gather, nullptr), nullptr);
    EXPECT_EQ(DTHash_Find(table, nullptr, nullptr), nullptr);
    DTHash_Delete(nullptr, "aa");
    DTHash_Delete(table, nullptr);
    DTHash_Release(table);
    DTHash_Release(nullptr);
    DTHash_Show(nullptr);
    DTHash_ShowDepth(nullptr);
    EXPECT_EQ(platform.blocks, 0u);
}

// Each allocation in turn fails: nothing is lost, and the same store succeeds once memory is back.
TEST(Hash, SurvivesEveryFailingAllocation) {
    unsigned fails = 0;
    for (bool done = false; !done; ++fails) {
        platform.fail_allocations_from(fails + 1);
        DTHash *table = letters(all_together);
        const int stored = DTHash_Set(table, "aa", "1.");
        done = stored != 0;
        platform.allocations_work();
        if (table && !done) {
            EXPECT_EQ(entries(table), "");
            EXPECT_EQ(platform.blocks, table->buckets[3] ? 3u : 2u); // no entry without its node
            EXPECT_EQ(DTHash_Set(table, "aa", "1."), 1);
            EXPECT_EQ(entries(table), "aa=1 ");
        }
        DTHash_Release(table);
        EXPECT_EQ(platform.blocks, 0u);
    }
    EXPECT_EQ(fails, 6u); // table, buckets, list, entry, node; then none
}

TEST(Hash, AgreesWithAMapOverARandomRun) {
    std::mt19937 random(20141116);
    std::map<uint16_t, uint32_t> model;
    DTHash *table = DTHash_New(2, 4, 13, nullptr);
    for (int i = 0; i < 20000; ++i) {
        const uint16_t key = static_cast<uint16_t>(random() % 200);
        const uint32_t value = static_cast<uint32_t>(random());
        if (random() % 3 != 0) {
            ASSERT_EQ(DTHash_Set(table, &key, &value), 1);
            model[key] = value;
        } else {
            DTHash_Delete(table, &key);
            model.erase(key);
        }
        const uint16_t asked = static_cast<uint16_t>(random() % 200);
        void *found;
        ASSERT_EQ(DTHash_Get(table, &asked, &found), static_cast<int>(model.count(asked)));
        ASSERT_TRUE(!found || memcmp(found, &model[asked], 4) == 0);
    }
    size_t count = 0;
    const DTHashMatch counts = [](const void *, void *, void *n) {
        ++*static_cast<size_t *>(n);
        return 1;
    };
    DTHash_Find(table, counts, &count);
    EXPECT_EQ(count, model.size());
    DTHash_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}
