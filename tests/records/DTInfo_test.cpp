#include "support/platform.h"
#include "support/store.h"

#include <gmock/gmock.h>

#include <random>
#include <stdio.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

std::string many(size_t count, char letter = 'v') { return std::string(count, letter); }

int32_t append(DTInfo *store, const std::string &key, const std::string &value) {
    return DTInfo_Append(store, key.data(), static_cast<uint8_t>(key.size()), value.data(),
                         static_cast<uint16_t>(value.size()));
}

// A store at its maximum of 1024 bytes, filled exactly by records of the given sizes.
DTInfo *full_store(std::initializer_list<size_t> sizes) {
    DTInfo *store = DTInfo_New(1024);
    char key = 'a';
    for (const size_t size : sizes)
        EXPECT_EQ(append(store, std::string(1, key++), many(size - 4)), static_cast<int32_t>(size));
    return store;
}

std::string keys_of(DTInfo *store) {
    std::string keys;
    for (const auto &record : records_of(store)) keys += record.first;
    return keys;
}

class InfoStore : public testing::Test {
protected:
    void SetUp() override { DTInfo_SetTrace(0); }
};

} // namespace

TEST_F(InfoStore, LaysOutARecord) {
    DTInfo *store = DTInfo_New(0);
    EXPECT_EQ(DTInfo_Write(store, "k", "value"), 9);
    EXPECT_EQ(DTInfo_Append2Message(store, "ab", 2, "12", 2, "345", 3), 1);
    EXPECT_EQ(DTMem_memcmp(store->memory, 0, "\1k\5\0value\2ab\5\00012345\xFF", 20), 0);
    EXPECT_EQ(store->free_addr, 19u);
    EXPECT_THAT(records_of(store), ElementsAre(Pair("k", "value"), Pair("ab", "12345")));
    expect_sound(store);
    DTInfo_Release(store);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(InfoStoreTrace, ReportsItsGrowthInOrder) {
    DTInfo *store = DTInfo_New(3000);
    EXPECT_EQ(store->max_size, 3072u);
    testing::internal::CaptureStdout();
    append(store, "k", many(1000));
    append(store, "k", many(100));  // grows by doubling
    append(store, "k", many(900));  // has room
    append(store, "k", many(2000)); // grows straight to the maximum, then erases all others
    std::string trace = testing::internal::GetCapturedStdout();
    for (size_t at; (at = trace.find("addr: 0x")) != std::string::npos;)
        trace.erase(at, trace.find('\n', at) - at);
    const auto dump = [](int size, int free_addr, int free_size) {
        char text[200];
        snprintf(text, sizeof text,
                 "logger info \nmemory \nmemory size: %d\nfree addr:   %d\nuse  addr:   0\n"
                 "maxsize: 3072\nfreesize: %d\n",
                 size, free_addr, free_size);
        return std::string(text);
    };
    EXPECT_EQ(trace, "size 104" + dump(1024, 1004, 20) +
                         "add size 1024, new size 2048 freesize 1044\n" + dump(2048, 1004, 1044) +
                         "size 2004" + dump(2048, 2012, 36) +
                         "add size 1024, new size 3072 freesize 1060\n" + dump(3072, 2012, 1060) +
                         "size 2004size 2004size 2004");
    testing::internal::CaptureStdout();
    DTInfo_SetTrace(0);
    append(store, "k", many(2000));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(InfoStore, GrowsToItsMaximumThenErasesTheOldest) {
    DTInfo *store = DTInfo_New(3000);
    for (int i = 0; i < 30; ++i)
        append(store, std::string(1, static_cast<char>('A' + i)), many(96));
    EXPECT_EQ(store->memory->size, 3072u);
    EXPECT_THAT(records_of(store), SizeIs(30));
    append(store, "x", many(96));
    append(store, "y", many(96)); // wraps: the tail of 72 bytes is too small
    EXPECT_EQ(keys_of(store), "CDEFGHIJKLMNOPQRSTUVWXYZ[\\]^xy");
    expect_sound(store);
}

TEST_F(InfoStore, WithoutAMaximumItErasesNothing) {
    DTInfo *store = DTInfo_New(0);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(append(store, "k", many(60000)), 60004);
    EXPECT_THAT(records_of(store), SizeIs(20));
    expect_sound(store);
}

TEST_F(InfoStore, ARecordAsLargeAsTheMaximumEvictsAllOthers) {
    DTInfo *store = full_store({500, 500});
    EXPECT_EQ(append(store, "k", many(1021)), -1); // one more than fits
    EXPECT_EQ(DTInfo_Append2Message(store, "k", 1, many(1000).c_str(), 1000, "+", 21), 0);
    EXPECT_EQ(keys_of(store), "ab");
    EXPECT_EQ(append(store, "k", many(1020)), 1024);
    EXPECT_EQ(keys_of(store), "k");
    EXPECT_EQ(append(store, "l", many(1020)), 1024);
    EXPECT_EQ(keys_of(store), "l");
    expect_sound(store);
}

// The oldest position comes to rest on the free tail: its records begin at the block's start.
TEST_F(InfoStore, AWalkFindsItsWayFromTheFreeTail) {
    DTInfo *store = full_store({400, 500}); // a tail of 124 bytes
    append(store, "c", many(396));          // erases a
    append(store, "d", many(296));          // erases b, the last before the tail
    EXPECT_EQ(store->use_addr, 900u);
    EXPECT_EQ(keys_of(store), "cd");
    EXPECT_EQ(records_of(store, "d"), (Records{{"d", many(296)}}));
    append(store, "e", many(196)); // the write position meets the oldest position on the tail
    EXPECT_EQ(store->free_addr, 900u);
    EXPECT_EQ(store->use_addr, 900u);
    EXPECT_EQ(keys_of(store), "cde");
    append(store, "f", many(96)); // and goes on into the tail
    EXPECT_EQ(keys_of(store), "cdef");
    expect_sound(store);
}

TEST_F(InfoStore, WalksAFullRingOnce) {
    DTInfo *store = full_store({500, 524});
    EXPECT_EQ(keys_of(store), "ab"); // full without a wrap
    append(store, "c", many(496));
    EXPECT_EQ(store->free_size, 0u);
    EXPECT_EQ(keys_of(store), "bc"); // full after it
    append(store, "d", many(520));   // the oldest position goes past the end
    EXPECT_EQ(store->use_addr, 0u);
    EXPECT_EQ(keys_of(store), "cd");
    expect_sound(store);
}

TEST_F(InfoStore, AnEmptyValueAtTheVeryEndHidesNothing) {
    DTInfo *store = full_store({500, 520, 4});
    EXPECT_EQ(keys_of(store), "abc");
    append(store, "d", many(396));
    EXPECT_EQ(keys_of(store), "bcd");
    uint32_t pos = 1020;
    const uint8_t *value = nullptr;
    uint16_t length = 1;
    EXPECT_EQ(DTInfo_Get(store, "c", 1, &pos, nullptr, nullptr, &value, &length), 1);
    EXPECT_EQ(value, static_cast<uint8_t *>(DTMem_Get(store->memory, 1023)) + 1);
    EXPECT_EQ(length, 0);
}

TEST_F(InfoStore, AFilterIsAPrefixThatNeverMatchesAcrossTheEnd) {
    DTInfo *store = full_store({500, 519});
    append(store, "c",
           many(1)); // at the very end: key, length and value are the block's last bytes
    for (const char *key : {"log", "l", "e"}) append(store, key, "x");
    const std::string across = std::string("c\1\0v", 4) + "\3";
    EXPECT_THAT(records_of(store, "c"), SizeIs(1));
    EXPECT_THAT(records_of(store, across), IsEmpty());
    EXPECT_THAT(records_of(store, "l"), ElementsAre(Pair("log", "x"), Pair("l", "x")));
    uint32_t pos = DTINFO_FIRST;
    uint16_t length;
    EXPECT_EQ(DTInfo_Get(store, "log", 0, &pos, nullptr, nullptr, nullptr, &length), 1);
    EXPECT_EQ(DTInfo_Get(store, "log", 0, &pos, nullptr, nullptr, nullptr, &length), 0);
}

// Wherever a position points after records were erased, reading stays inside the block.
TEST_F(InfoStore, SurvivesPositionsThatPointAnywhere) {
    DTInfo *store = full_store({300, 300, 300});
    append(store, "d", many(200, '\x7F'));
    for (uint32_t start = 0; start < 1100; ++start) {
        uint32_t pos = start;
        const uint8_t *key, *value;
        uint8_t key_len;
        uint16_t value_len;
        for (int i = 0; i < 10; ++i) {
            if (!DTInfo_Get(store, nullptr, 0, &pos, &key, &key_len, &value, &value_len)) break;
            const uint8_t *end = static_cast<uint8_t *>(DTMem_Get(store->memory, 1023)) + 1;
            ASSERT_LE(value + value_len, end) << start;
            ASSERT_LT(i, 9) << start;
        }
    }
}

TEST_F(InfoStore, RefusesWhatTheLayoutCannotHold) {
    DTInfo *store = DTInfo_New(1024 * 1024);
    append(store, "kept", "1");
    const std::string long_text = many(65536);
    EXPECT_EQ(append(store, many(255, 'k'), "v"), -1);
    EXPECT_EQ(append(store, many(254, 'k'), "v"), 258);
    EXPECT_EQ(DTInfo_Write(store, many(256, 'k').c_str(), "v"), -1);
    EXPECT_EQ(DTInfo_Write(store, "k", long_text.c_str()), -1);
    EXPECT_EQ(DTInfo_Write(store, nullptr, "v"), -1);
    EXPECT_EQ(DTInfo_Write(store, "k", nullptr), -1);
    EXPECT_EQ(DTInfo_Append(store, nullptr, 1, "v", 1), -1);
    EXPECT_EQ(DTInfo_Append(store, "k", 1, nullptr, 1), -1);
    EXPECT_EQ(DTInfo_Append2Message(store, "k", 1, long_text.data(), 65535, "+", 1), 0);
    EXPECT_EQ(DTInfo_PackPre(store, "k", 1, 65536), 0);
    EXPECT_EQ(DTInfo_PackPre(store, many(300, 'k').c_str(), 0, 1), 0);
    EXPECT_THAT(records_of(store), SizeIs(2));
    store->free_size = 2048;
    EXPECT_EQ(append(store, "k", "v"), -1); // positions that cannot be
}

TEST_F(InfoStore, RefusalsOfOneSizeEraseNothingOfAnother) {
    DTInfo *store = full_store({500, 524});
    EXPECT_EQ(append(store, "k", many(1100)), -1);
    EXPECT_EQ(DTInfo_PackPre(store, "k", 1, 1100), 0);
    EXPECT_EQ(keys_of(store), "ab");
}

TEST_F(InfoStore, IgnoreDropsAppendsInEachOnesWay) {
    DTInfo *store = DTInfo_New(0);
    append(store, "a", "1");
    DTInfo_Ignore(store, 1);
    EXPECT_EQ(append(store, "b", "1"), 0);
    EXPECT_EQ(DTInfo_Write(store, "b", "1"), 0);
    EXPECT_EQ(DTInfo_Append2Message(store, "b", 1, "1", 1, "2", 1), 1);
    EXPECT_EQ(DTInfo_PackPre(store, "b", 1, 1), 0);
    EXPECT_EQ(keys_of(store), "a");
    DTInfo_ReSize(store, 4096);
    EXPECT_EQ(store->ignore, 1u);
}

TEST_F(InfoStore, APreparedRecordTakesItsValueInPlace) {
    DTInfo *store = DTInfo_New(0);
    ASSERT_EQ(DTInfo_PackPre(store, "BH", 0, 3), 1);
    EXPECT_EQ(store->free_addr, 5u);
    const int32_t size = DTBuffer_Pack(DTMem_Get(store->memory, store->free_addr), "BH", 7, 0x0201);
    store->free_addr += static_cast<uint32_t>(size);
    store->free_size -= static_cast<uint32_t>(size);
    uint32_t pos = DTINFO_FIRST;
    char format[256];
    const uint8_t *value = nullptr;
    EXPECT_EQ(DTInfo_GetPack(store, &pos, format, &value), 1);
    EXPECT_STREQ(format, "*BH");
    EXPECT_EQ(memcmp(value, "\7\1\2", 3), 0);
    EXPECT_EQ(DTInfo_GetPack(store, &pos, format, &value), 0);
}

TEST_F(InfoStore, ResizingKeepsOrEmpties) {
    DTInfo *store = DTInfo_New(2048);
    DTInfo_SetFlag(store, 7, 1);
    append(store, "a", many(1500));
    EXPECT_EQ(DTInfo_ReSize(store, 1025), 1); // the same after rounding
    EXPECT_EQ(keys_of(store), "a");
    EXPECT_EQ(DTInfo_ReSize(store, 0), 1);
    EXPECT_EQ(store->memory->size, 2048u);
    EXPECT_EQ(keys_of(store), "");
    EXPECT_EQ(DTInfo_ReSize(store, 2000), 1); // not above the block: a new one
    EXPECT_EQ(store->memory->size, 1024u);
    EXPECT_EQ(store->max_size, 2048u);
    EXPECT_EQ(DTInfo_GetFlag(store, 7), 1);
    EXPECT_EQ(DTInfo_ReSize(store, UINT32_MAX), 0); // rounding wraps
    expect_sound(store);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTInfo_ReSize(store, 1024), 0);
    EXPECT_EQ(store->memory, nullptr);
    EXPECT_EQ(append(store, "a", "1"), -1);
    EXPECT_EQ(DTInfo_Append2Message(store, "a", 1, "1", 1, "", 0), 0);
    EXPECT_EQ(keys_of(store), "");
    DTInfo_Clear(store);
    platform.allocations_work();
    EXPECT_EQ(DTInfo_ReSize(store, 1024), 1);
    EXPECT_EQ(append(store, "a", "1"), 5);
    DTInfo_Release(store);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST_F(InfoStore, AGrowthThatFailsKeepsAllRecords) {
    DTInfo *store = DTInfo_New(0);
    append(store, "a", many(1000));
    platform.fail_allocations_from(1);
    EXPECT_EQ(append(store, "b", many(1000)), -1);
    platform.allocations_work();
    EXPECT_EQ(keys_of(store), "a");
    EXPECT_EQ(append(store, "b", many(1000)), 1004);
    EXPECT_EQ(keys_of(store), "ab");
    for (unsigned nth : {1u, 2u}) {
        const unsigned before = platform.blocks;
        platform.fail_allocations_from(nth);
        EXPECT_EQ(DTInfo_New(0), nullptr);
        EXPECT_EQ(platform.blocks, before);
    }
}

TEST_F(InfoStore, KeepsTwoThousandFlags) {
    DTInfo *store = DTInfo_New(0);
    DTInfo_SetFlag(store, 1999, 1);
    DTInfo_SetFlag(store, 2000, 3); // out of range: nothing
    EXPECT_EQ(DTInfo_GetFlag(store, 1999), 1);
    EXPECT_EQ(store->flags[249], 0x80);
    DTInfo_SetFlag(store, 1999, 0);
    EXPECT_EQ(store->flags[249], 0);
    DTInfo_SetFlag(store, 0, 2);
    EXPECT_EQ(DTInfo_GetFlag(store, 1234), 1);
    DTInfo_SetFlag(store, 9, 7);
    EXPECT_EQ(store->flags[1], 0xFD);
    DTInfo_SetFlag(store, 0, 3);
    EXPECT_EQ(DTInfo_GetFlag(store, 1234), 0);
    EXPECT_EQ(DTInfo_GetFlag(store, 2000), 1);
}

TEST_F(InfoStore, AnswersNull) {
    uint32_t pos = DTINFO_FIRST;
    char format[256];
    EXPECT_EQ(DTInfo_ReSize(nullptr, 1), 0);
    EXPECT_EQ(DTInfo_Append(nullptr, "k", 1, "v", 1), -1);
    EXPECT_EQ(DTInfo_Append2Message(nullptr, "k", 1, "v", 1, "", 0), 0);
    EXPECT_EQ(DTInfo_Write(nullptr, "k", "v"), -1);
    EXPECT_EQ(DTInfo_PackPre(nullptr, "k", 1, 1), 0);
    EXPECT_EQ(DTInfo_Get(nullptr, nullptr, 0, &pos, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(DTInfo_GetPack(nullptr, &pos, format, nullptr), 0);
    DTInfo_Clear(nullptr);
    DTInfo_Release(nullptr);
    DTInfo_Ignore(nullptr, 1);
    DTInfo_SetFlag(nullptr, 1, 1);
}

// Random appends, seeded, of sizes up to the maximum.
TEST_F(InfoStore, HoldsTheNewestRecordsLikeAModel) {
    std::mt19937 random(19700101);
    for (const uint32_t max_size : {1024u, 2048u, 5120u}) {
        DTInfo *store = DTInfo_New(max_size);
        LapModel model(max_size);
        for (uint32_t step = 0; step < 5000; ++step) {
            const std::string key = many(random() % 5, static_cast<char>('a' + step % 26));
            const size_t longest = random() % 20 == 0 ? max_size - key.size() - 2 : 120;
            const std::string value = many(random() % longest, static_cast<char>('A' + step % 26));
            const size_t size = key.size() + value.size() + 3;
            ASSERT_EQ(append(store, key, value), static_cast<int32_t>(size));
            model.append(key, value);
            ASSERT_EQ(store->free_addr, model.at);
            ASSERT_EQ(records_of(store), model.records()) << step;
            if (step % 16 == 0) expect_sound(store);
        }
        DTInfo_Release(store);
    }
    EXPECT_EQ(platform.blocks, 0u);
}
