#include "support/store.h"

#include <regex>

namespace {

using namespace std::string_literals;

struct Filters {
    int32_t id = -1;
    const char *hex1 = "", *hex2 = nullptr;
    uint32_t value = 0, type = 0, from = 0, to = 0;
};

struct InfoRecords : RecordsTest {
    DTInfo *store = DTInfo_New(0);

    void add(uint8_t type, uint32_t id, uint32_t value, const std::string &data1 = "",
             const std::string &data2 = "", const std::string &data3 = "") {
        DTInfo_AddInfo(store, type, id, data1.data(), static_cast<int32_t>(data1.size()),
                       data2.data(), static_cast<int32_t>(data2.size()), data3.data(),
                       static_cast<int32_t>(data3.size()), value);
    }
    // Keys and values; the store is empty then.
    std::string stored() {
        std::string all;
        for (const auto &[key, value] : records_of(store)) all += key + "|" + value;
        DTInfo_Clear(store);
        return all;
    }
    std::string show(const Filters &f) {
        DTInfo_ShowInfo(store, f.id, f.hex1, f.hex2, f.value, f.type, f.from, f.to);
        DTPrint_ShowEx("", 0); // the total has no line break
        return platform.take_console();
    }
    // The numbers of the records shown, and the total; all other characters go.
    std::string numbers(const Filters &f) {
        const std::regex number("index=(\\d+,)|Total count(.*)|[^]");
        return std::regex_replace(show(f), number, "$1$2");
    }
};

} // namespace

TEST_F(InfoRecords, CarryTheirFormatAsTheirKey) {
    add(0x7F, 300, 0x01020304, "abc", "defgh", "ijklmno");
    DTInfo_SetFlag(store, 300, 1);
    add(1, 300, 0, "abc", "defgh", "ijklmno");
    add(1, 65536 + 301, 0, "", "", "third"); // the whole id has its flag set, 301 has not
    EXPECT_EQ(stored(), "TBhI3S5S0S|\x9B\xF0\x68\x54\x7F\x2C\x01\x04\x03\x02\x01"s
                        "abcdefgh"
                        "TBhI3S5S7S|\x9B\xF0\x68\x54\x01\x2C\x01\0\0\0\0abcdefghijklmno"
                        "TBhI0S0S5S|\x9B\xF0\x68\x54\x01\x2D\x01\0\0\0\0third"s);
    add(2, 65535, 0xFFFFFFFF, "\x0A\xFF");
    EXPECT_EQ(show({}), "index=1,format:*TBhI2S0S0S\n0001[T]=>2014/11/16 18:44:43<\n"
                        "0002[B]=>0x02<\n0003[h]=>-1<\n0004[I]=>0xFFFFFFFF<\n"
                        "0005[2S]=>\n0A FF \n0006[0S]=>\n\n0007[0S]=>\n\nTotal count 1");
}

TEST_F(InfoRecords, AreAddedWholeOrNotAtAll) {
    DTInfo_AddInfo(store, 1, 1, nullptr, 1, "", 0, "", 0, 1);
    DTInfo_AddInfo(store, 1, 1, "", 0, "abc", -2, "", 0, 1);
    DTInfo_AddInfo(store, 1, 2000, "", 0, "", 0, nullptr, 1, 1);
    for (const size_t size : {65525, 65536 + 65524, 65536 + 65536})
        add(1, 1, 1, std::string(size, 'x'));
    DTInfo_Ignore(store, 1);
    platform.format = "none";
    add(1, 1, 1);
    EXPECT_EQ(platform.format + std::to_string(store->free_addr), "none0");
    DTInfo_Ignore(store, 0);
    // Without its flag the third string is not looked at.
    DTInfo_AddInfo(store, 1, 1, nullptr, 0, nullptr, 0, nullptr, -1, 1);
    EXPECT_EQ(stored(), "TBhI0S0S0S|\x9B\xF0\x68\x54\x01\x01\0\x01\0\0\0"s);
    add(1, 1, 1, std::string(65524, 'x'));
    EXPECT_EQ(store->free_addr, 1u + 14 + 2 + 65535);
    EXPECT_EQ(store->free_addr + store->free_size, store->memory->size);
}

TEST_F(InfoRecords, AreSelectedByEachFilterAmongOthers) {
    add(1, 7, 0, "\x0A\0z"s, "second");
    for (const std::string key :
         {"l", "TBhI1S2S", "TBhI0S0S0s", "TBhI0S0S0S.", "TBhIS2S3S", "TBhI99999999999S2S3S",
          "TBhI0S0S1S", "tBhI0S0S0S", "TBhI 0S0S0S"})
        append(store, key, "elevenbytes");
    add(2, 65535, 5, "\x0A\x01", "se");
    add(1, 65543, 0xFFFFFFFE, "", "the third");
    const std::pair<Filters, const char *> cases[] = {
        {{}, "1,2,3, 3"},
        {{.id = 65536 + 7}, "1,2, 2"}, // 65543 is recorded as 7
        {{.id = 65535}, "1, 1"},
        {{.value = 5}, "1, 1"},
        {{.type = 257}, " 0"}, // compared whole
        {{.hex1 = "0A1"}, "1,2, 2"},
        {{.hex1 = "0a007A"}, "1, 1"},
        {{.hex1 = "0a007B"}, " 0"},   // bytes, not text
        {{.hex1 = "0A007A00"}, " 0"}, // longer than the string
        {{.hex1 = "0Azz"}, "1, 1"},   // no number: 0
        {{.hex1 = nullptr, .hex2 = "7365"}, "1,2, 2"},
        {{.id = 7, .hex2 = "73", .type = 1}, "1, 1"},
        {{.from = 1, .to = 2}, "2, 3"},
        {{.value = UINT32_MAX, .from = 1}, "2, 2"},
    };
    for (const auto &[filters, expected] : cases) EXPECT_EQ(numbers(filters), expected);
}

TEST_F(InfoRecords, OfAnyLengthAreComparedAndShown) {
    const std::string text(5000, '\xAA'), hex(400, 'A');
    add(1, 1, 1, text, text);
    add(1, 1, 1, text.substr(0, 199), text);
    EXPECT_EQ(numbers({.hex1 = (hex + "62").c_str()}), "1, 1"); // no byte beyond the 200th
    const std::string all = show({.hex2 = hex.c_str(), .to = 1});
    EXPECT_EQ(std::count(all.begin(), all.end(), 'A'), 2 * 10000);
}
