#include "support/store.h"

#include <random>
#include <regex>

namespace {

std::string many(size_t count, char letter = 'v') { return std::string(count, letter); }

std::string keys_of(DTInfo *store) {
    std::string keys;
    for (const auto &record : records_of(store)) keys += record.first;
    return keys;
}

// What the four ways to append answer: all of them, or with a failure each.
std::vector<int32_t> answers(DTInfo *store, const std::string &key, const std::string &value) {
    const auto size = static_cast<uint16_t>(value.size());
    const auto key_size = static_cast<uint8_t>(key.size());
    return {append(store, key, value), DTInfo_Write(store, key.c_str(), value.c_str()),
            DTInfo_Append2Message(store, key.data(), key_size, value.data(), size, "", 0),
            DTInfo_PackPre(store, key.c_str(), key_size, size)};
}

const std::vector<int32_t> refused = {-1, -1, 0, 0};

struct InfoStore : RecordsTest {};

} // namespace

TEST_F(InfoStore, LaysOutARecordWithLengthsOf8And16Bits) {
    DTInfo *store = DTInfo_New(0);
    const std::string key = many(254, 'k'), text = many(65536);
    EXPECT_EQ(DTInfo_Write(store, "k", "value"), 9);
    EXPECT_EQ(DTInfo_Append2Message(store, "ab", 2, "12", 2, "345", 3), 1);
    EXPECT_EQ(DTInfo_Write(store, "w", text.c_str()), 4); // the low 16 bits of a text's length
    EXPECT_EQ(DTInfo_Write(store, "w", (text + "x").c_str()), 5);
    EXPECT_EQ(DTMem_memcmp(store->memory, 0, "\1k\5\0value\2ab\5\00012345\1w\0\0\1w\1\0v\xFF", 29),
              0);
    EXPECT_STREQ(fault_of(store), nullptr);
    EXPECT_EQ(append(store, key, many(65535)), 65535 + 254 + 3);
    EXPECT_EQ(answers(store, key + "k", "v"), refused);
    EXPECT_EQ(DTInfo_Write(store, nullptr, "v") + DTInfo_Write(store, "k", nullptr), -2);
    EXPECT_EQ(DTInfo_Append(store, nullptr, 1, "v", 1) + DTInfo_Append(store, "k", 1, nullptr, 1),
              -2);
    EXPECT_EQ(DTInfo_Append2Message(store, "k", 1, text.data(), 65535, "+", 1), 0);
    EXPECT_EQ(DTInfo_PackPre(store, text.c_str(), 0, 1), 0);
    store->free_size = 1024 * 1024;
    EXPECT_EQ(answers(store, "k", "v"), refused); // positions that cannot be
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

TEST_F(InfoStore, AFilterIsAPrefixThatNeverMatchesAcrossTheEnd) {
    DTInfo *store = DTInfo_New(1024);
    for (const size_t size : {496, 516, 0}) // the last with its empty value at the very end
        append(store, many(1, static_cast<char>('a' + size % 10)), many(size));
    for (const char *key : {"log", "l", "e"}) append(store, key, "x");
    EXPECT_EQ(keys_of(store), "galogle");
    EXPECT_EQ(records_of(store, "a"), (Records{{"a", ""}}));
    EXPECT_EQ(records_of(store, std::string("a\0\0\3", 4)), Records());
    EXPECT_EQ(records_of(store, "l"), (Records{{"log", "x"}, {"l", "x"}}));
    uint32_t pos = DTINFO_FIRST;
    for (const int found : {1, 0}) // a key of no length is a text
        EXPECT_EQ(DTInfo_Get(store, "log", 0, &pos, nullptr, nullptr, nullptr, nullptr), found);
}

// Of a value that the caller writes later the bytes are free until then, and its length has 16
// bits.
TEST_F(InfoStore, NoRecordBeginsWithAFreeByte) {
    DTInfo *store = DTInfo_New(128 * 1024);
    append(store, "a", many(65535));
    append(store, "a", many(65528));
    ASSERT_EQ(DTInfo_PackPre(store, "b", 1, 65536 * 3 + 500), 1); // in the place of the first
    EXPECT_EQ(store->free_addr, 4u);
    const void *value = DTMem_Get(store->memory, store->free_addr);
    EXPECT_EQ(std::string(static_cast<const char *>(value), 500), std::string(500, '\xFF'));
    DTInfo_Clear(store); // as with a position that a caller set beyond what there is
    store->use_addr = 1024;
    EXPECT_EQ(keys_of(store), "");
    DTInfo *damaged = DTInfo_New(1024);
    for (const size_t size : {100, 900}) append(damaged, "a", many(size));
    DTMem_memcpy(damaged->memory, 106, "\xFF\xFF", 2); // the second seems to leave the block
    EXPECT_EQ(append(damaged, "a", many(500)), -1);
    EXPECT_EQ(DTMem_memcmp(damaged->memory, 0, std::string(104, '\xFF').data(), 104), 0);
}

TEST_F(InfoStore, ResizingKeepsOrEmpties) {
    DTInfo *store = DTInfo_New(2048);
    append(store, "a", many(1500));
    EXPECT_EQ(DTInfo_ReSize(store, 1025), 1); // the same after rounding
    EXPECT_EQ(keys_of(store), "a");
    EXPECT_EQ(DTInfo_ReSize(store, 0), 1);
    EXPECT_EQ(store->memory->size + store->free_addr, 2048u);
    for (const uint32_t as_large_as_you_like : {0xFFFFFC01, UINT32_MAX}) {
        EXPECT_EQ(DTInfo_ReSize(store, as_large_as_you_like), 1);
        EXPECT_EQ(store->max_size, 0xFFFFFC00);
    }
    for (int i = 0; i < 600; ++i) EXPECT_EQ(append(store, "k", many(1020)), 1024);
    EXPECT_EQ(store->memory->size, 768u * 1024); // by 256 KiB at most
    EXPECT_EQ(DTInfo_ReSize(store, 2000), 1);    // not above the block: a new one
    EXPECT_EQ(store->memory->size + store->max_size, 1024u + 2048);
    EXPECT_STREQ(fault_of(store), nullptr);
    DTInfo_Ignore(store, 1);
    EXPECT_EQ(answers(store, "b", "1"), (std::vector<int32_t>{0, 0, 1, 0}));
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTInfo_ReSize(store, 1024), 0); // a store without a block
    DTInfo_Ignore(store, 0);
    EXPECT_EQ(answers(store, "a", "1"), refused);
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
