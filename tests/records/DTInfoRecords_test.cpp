#include "support/clock.h"
#include "support/platform.h"

#include <dt/foundation.h>
#include <dt/records.h>
#include <gtest/gtest.h>

#include <string.h>
#include <string>

namespace {

using namespace std::string_literals;

struct Filters {
    int32_t id = -1;
    const char *hex1 = "";
    const char *hex2 = "";
    uint32_t value = 0, type = 0, from = 0, to = 0;
};

struct InfoRecords : testing::Test {
    DTInfo *store = DTInfo_New(0);

    InfoRecords() { fake_clock.stand_at(a_sunday_evening); }
    ~InfoRecords() override { DTInfo_Release(store); }

    void add(uint8_t type, uint32_t id, uint32_t value, const std::string &data1 = "",
             const std::string &data2 = "", const std::string &data3 = "") {
        DTInfo_AddInfo(store, type, id, data1.data(), static_cast<int32_t>(data1.size()),
                       data2.data(), static_cast<int32_t>(data2.size()), data3.data(),
                       static_cast<int32_t>(data3.size()), value);
    }
    // Key and value of the only record.
    std::string stored() {
        uint32_t pos = DTINFO_FIRST;
        const uint8_t *key, *value;
        uint8_t key_len;
        uint16_t value_len;
        if (!DTInfo_Get(store, nullptr, 0, &pos, &key, &key_len, &value, &value_len)) return "none";
        const std::string record =
            std::string(key, key + key_len) + "|" + std::string(value, value + value_len);
        EXPECT_EQ(DTInfo_Get(store, nullptr, 0, &pos, &key, &key_len, &value, &value_len), 0);
        DTInfo_Clear(store);
        return record;
    }
    std::string show(const Filters &f) {
        DTInfo_ShowInfo(store, f.id, f.hex1, f.hex2, f.value, f.type, f.from, f.to);
        DTPrint_ShowEx("", 0); // the total has no line break
        return platform.take_console();
    }
    // The numbers of the records shown and the total.
    std::string numbers(const Filters &f) {
        const std::string all = show(f);
        std::string found;
        for (size_t at = 0; (at = all.find("index=", at)) != all.npos; ++at)
            found += all.substr(at + 6, all.find(',', at) - at - 5);
        return found + " of" + all.substr(all.rfind(' '));
    }
};

} // namespace

TEST_F(InfoRecords, CarryTheirFormatAsTheirKey) {
    add(0x7F, 300, 0x01020304, "abc", "defgh", "ijklmno");
    EXPECT_EQ(stored(), "TBhI3S5S0S|\x9B\xF0\x68\x54\x7F\x2C\x01\x04\x03\x02\x01"s
                        "abcdefgh");
    DTInfo_SetFlag(store, 300, 1);
    add(1, 300, 0, "abc", "defgh", "ijklmno");
    EXPECT_EQ(stored(), "TBhI3S5S7S|\x9B\xF0\x68\x54\x01\x2C\x01\0\0\0\0abcdefghijklmno"s);
    add(1, 2000, 0, "", "", "third");
    EXPECT_EQ(stored(), "TBhI0S0S5S|\x9B\xF0\x68\x54\x01\xD0\x07\0\0\0\0third"s);
    add(1, 65536 + 301, 0, "", "", "third"); // the whole id has its flag set, 301 has not
    EXPECT_EQ(stored(), "TBhI0S0S5S|\x9B\xF0\x68\x54\x01\x2D\x01\0\0\0\0third"s);
}

TEST_F(InfoRecords, AreAddedWholeOrNotAtAll) {
    DTInfo_AddInfo(nullptr, 1, 1, "a", 1, "b", 1, "c", 1, 1);
    DTInfo_AddInfo(store, 1, 1, nullptr, 1, "", 0, "", 0, 1);
    DTInfo_AddInfo(store, 1, 1, "", 0, "abc", -2, "", 0, 1);
    DTInfo_AddInfo(store, 1, 2000, "", 0, "", 0, nullptr, 1, 1);
    add(1, 1, 1, std::string(65525, 'x'));
    add(1, 1, 1, std::string(40000, 'x'), std::string(40000, 'y'));
    DTInfo_Ignore(store, 1);
    add(1, 1, 1);
    DTInfo_Ignore(store, 0);
    EXPECT_EQ(stored(), "none");
    // Without its flag the third string is not looked at.
    DTInfo_AddInfo(store, 1, 1, nullptr, 0, nullptr, 0, nullptr, -1, 1);
    EXPECT_EQ(stored(), "TBhI0S0S0S|\x9B\xF0\x68\x54\x01\x01\0\x01\0\0\0"s);
    add(1, 1, 1, std::string(65524, 'x'));
    EXPECT_EQ(stored().size(), 15u + 65535);
    platform.fail_allocations_from(1);
    DTInfo_ReSize(store, 1024); // a store without a block
    platform.allocations_work();
    add(1, 1, 1);
    EXPECT_EQ(numbers({}), " of 0");
}

TEST_F(InfoRecords, AreShownWithNumbersAndATotal) {
    add(2, 65535, 0xFFFFFFFF, "\x0A\xFF");
    add(1, 5, 17, "", "0123456789abcdefg", "not recorded");
    EXPECT_EQ(show({}), "index=1,format:*TBhI2S0S0S\n"
                        "0001[T]=>2014/11/16 18:44:43<\n"
                        "0002[B]=>0x02<\n"
                        "0003[h]=>-1<\n"
                        "0004[I]=>0xFFFFFFFF<\n"
                        "0005[2S]=>\n"
                        "0A FF \n"
                        "0006[0S]=>\n"
                        "\n"
                        "0007[0S]=>\n"
                        "\n"
                        "index=2,format:*TBhI0S17S0S\n"
                        "0001[T]=>2014/11/16 18:44:43<\n"
                        "0002[B]=>0x01<\n"
                        "0003[h]=>5<\n"
                        "0004[I]=>0x00000011<\n"
                        "0005[0S]=>\n"
                        "\n"
                        "0006[17S]=>\n"
                        "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 \n"
                        "67 \n"
                        "0007[0S]=>\n"
                        "\n"
                        "Total count 2");
    DTInfo_ShowInfo(nullptr, -1, "", "", 0, 0, 0, 0);
    EXPECT_EQ(platform.take_console(), "");
}

TEST_F(InfoRecords, AreSelectedByEachFilter) {
    add(1, 7, 0, "\x0A\0z"s, "second");
    add(2, 65535, 5, "\x0A\x01", "se");
    add(1, 65543, 0xFFFFFFFE, "", "third");
    EXPECT_EQ(numbers({}), "1,2,3, of 3");
    EXPECT_EQ(numbers({.id = 7}), "1,2, of 2"); // 65543 is recorded as 7
    EXPECT_EQ(numbers({.id = 65536 + 7}), "1,2, of 2");
    EXPECT_EQ(numbers({.id = 65535}), "1, of 1");
    EXPECT_EQ(numbers({.value = 5}), "1, of 1");
    EXPECT_EQ(numbers({.value = 0xFFFFFFFF}), "1,2, of 2");
    EXPECT_EQ(numbers({.type = 1}), "1,2, of 2");
    EXPECT_EQ(numbers({.type = 257}), " of 0"); // compared whole
    EXPECT_EQ(numbers({.hex1 = "0A1"}), "1,2, of 2");
    EXPECT_EQ(numbers({.hex1 = "0a007A"}), "1, of 1");
    EXPECT_EQ(numbers({.hex1 = "0a007B"}), " of 0");   // bytes, not text
    EXPECT_EQ(numbers({.hex1 = "0A007A00"}), " of 0"); // longer than the string
    EXPECT_EQ(numbers({.hex2 = "7365"}), "1,2, of 2");
    EXPECT_EQ(numbers({.hex1 = "0Azz"}), "1, of 1"); // no number: 0
    EXPECT_EQ(numbers({.hex1 = "A"}), "1,2,3, of 3");
    EXPECT_EQ(numbers({.hex1 = nullptr, .hex2 = nullptr}), "1,2,3, of 3");
    EXPECT_EQ(numbers({.id = 7, .hex2 = "73", .value = 0, .type = 1}), "1, of 1");
}

TEST_F(InfoRecords, AreShownWithinARange) {
    for (uint32_t i = 0; i < 5; ++i) add(1, i, i);
    EXPECT_EQ(numbers({.from = 2, .to = 3}), "3, of 5");
    EXPECT_EQ(numbers({.from = 3}), "4,5, of 5");
    EXPECT_EQ(numbers({.to = 2}), "1,2, of 5");
    EXPECT_EQ(numbers({.value = UINT32_MAX, .from = 1, .to = 2}), "2, of 4");
    EXPECT_EQ(numbers({.from = 9}), " of 5");
}

TEST_F(InfoRecords, OfAnyLengthAreComparedAndShown) {
    const std::string long_text(5000, 'a');
    std::string hex;
    for (int i = 0; i < 200; ++i) hex += "61";
    add(1, 1, 1, long_text, long_text);
    add(1, 1, 1, std::string(199, 'a'), long_text);
    EXPECT_EQ(numbers({.hex1 = hex.c_str()}), "1, of 1");
    EXPECT_EQ(numbers({.hex1 = (hex + "62").c_str()}), "1, of 1"); // no byte beyond the 200th
    EXPECT_EQ(numbers({.hex1 = hex.substr(2).c_str(), .hex2 = hex.c_str()}), "1,2, of 2");
    size_t shown = 0;
    const std::string text = show({.to = 1});
    for (size_t at = 0; (at = text.find("61 ", at)) != text.npos; ++at) ++shown;
    EXPECT_EQ(shown, 10000u);
}

TEST_F(InfoRecords, AmongOthersAreFound) {
    const char *foreign[] = {"l",           "TBhI",        "TBhI1S2S",    "TBhI1S2S3s",
                             "TBhI0S0S0S.", "TBhI-1S2S3S", "TBhIS2S3S",   "TBhI99999999999S2S3S",
                             "TBhI0S0S1S",  "tBhI0S0S0S",  "TBhI 0S0S0S", ""};
    add(1, 1, 1);
    for (const char *key : foreign)
        DTInfo_Append(store, key, static_cast<uint8_t>(strlen(key)), "elevenbytes", 11);
    add(1, 2, 1);
    EXPECT_EQ(numbers({}), "1,2, of 2");
}

// A store that cannot grow keeps what it has; the same record goes in once memory is back.
TEST_F(InfoRecords, SurviveAFailingGrowth) {
    add(1, 1, 1, std::string(900, 'x'));
    const uint32_t free_size = store->free_size;
    platform.fail_allocations_from(1);
    add(1, 2, 2, std::string(900, 'y'));
    EXPECT_EQ(store->free_size, free_size);
    platform.allocations_work();
    EXPECT_EQ(numbers({}), "1, of 1");
    add(1, 2, 2, std::string(900, 'y'));
    EXPECT_EQ(numbers({}), "1,2, of 2");
    EXPECT_EQ(store->free_addr + store->free_size, store->memory->size);
}
