#include "support/store.h"
#include "support/wire.h"

#include <regex>

namespace {

constexpr DTFunc funcs[] = {
    {"open", "B", 3, "(device)"},
    {"read", "H2s", -1, "(blocks)"},
    {nullptr, nullptr, 0, nullptr},
};

struct FuncLog : RecordsTest {
    DTFuncLog *log = DTFuncLog_New(funcs, 3, 1024);

    void add(uint8_t key, const std::string &fields) {
        append(log->info, {static_cast<char>(key)}, word(a_sunday_evening) + fields);
    }
    std::string show(const char *name, int32_t from, int32_t count) {
        return console_of(DTFuncLog_Show, log, name, from, count);
    }
    // Number and last digit of each record shown.
    std::string selected(const char *name, int32_t from, int32_t count) {
        const std::regex record("\n\\w*=(\\d+),[^=]*=>[^=]*=>0x\\w*(\\w)<\n(0003.*\n)?");
        return std::regex_replace(show(name, from, count), record, "$1:$2 ");
    }
};

} // namespace

TEST_F(FuncLog, NumbersTheRecordsThatItSelects) {
    add(0, "\1");
    add(1, "\7acd");
    for (const char *byte : {"\2", "\3"}) add(0, byte);
    EXPECT_EQ(selected(nullptr, 0, 10), "0:1 1:7 2:2 3:3 ");
    EXPECT_EQ(selected("", 1, 2), "1:7 2:2 ");
    EXPECT_EQ(selected("open", 2, INT32_MAX), "2:3 ");
    EXPECT_EQ(selected("", -2, 3), "0:1 ");
    EXPECT_EQ(selected("", INT32_MIN, INT32_MAX), ""); // 2^31 at the first record is too many
    EXPECT_EQ(selected("", 0, -1) + selected("close", 0, 10) + selected("ope", 0, 10), "");
}

TEST_F(FuncLog, EndsAtARecordOfNoFunction) {
    add(0, "\1");
    add(3, "foreign");
    add(1, "ab\xFF");
    EXPECT_EQ(selected(nullptr, 0, 10), "0:1 ");
    // Those in front of from are not looked at; of a record that is cut its whole fields are shown.
    EXPECT_EQ(show(nullptr, 2, 10), "\nindex=2,func:read (blocks)\nformat:*TH2s\n"
                                    "0001[T]=>2014/11/16 18:44:43<\n0002[H]=>0x6261<\n");
    DTInfo_Clear(log->info);
    DTInfo_Append(log->info, nullptr, 0, "\1", 1);
    EXPECT_EQ(show(nullptr, 0, 10), "");
}

TEST_F(FuncLog, ShowsTheFirst97CharactersOfAFormat) {
    const std::string blanks(94, '.'), name(2000, 'n'), cut = blanks + "b12s";
    const DTFunc table[] = {{name.c_str(), cut.c_str(), 0, "d"}};
    log->funcs = table;
    add(0, "\1x");
    EXPECT_EQ(show("", 0, 1), "\nindex=0,func:" + name + " d\nformat:*T" + blanks +
                                  "b12\n0001[T]=>2014/11/16 18:44:43<\n0002[B]=>1<\n");
}

// A log without a table is read like any other.
TEST_F(FuncLog, ListsItsTableAndGetsRecordsAndTheirOwners) {
    EXPECT_EQ(console_of(DTFuncLog_ShowFunc, log), "\nopen(device)\nid:0;cnt:3;fmt:B\n"
                                                   "read(blocks)\nid:1;cnt:-1;fmt:H2s\n"
                                                   "\nid:2;cnt:0;fmt:\n");
    DTFuncLog_Release(log);
    EXPECT_EQ(platform.blocks, 1u); // the sink
    log = DTFuncLog_New(nullptr, 457, 1024);
    add(0, "\1");
    add(200, "foreign");
    uint32_t pos = DTINFO_FIRST, id = 7, length = 7;
    const uint8_t *value = nullptr;
    const auto get = [&](int32_t index) {
        return DTFuncLog_Get(log, index, &pos, &id, &value, &length);
    };
    EXPECT_EQ(get(DTFUNCLOG_ANY), 1);
    EXPECT_EQ(id * 100 + length * 10 + value[4], 51u);
    EXPECT_EQ(get(INT32_MIN), 1);
    EXPECT_EQ(id, 200u);
    pos = DTINFO_FIRST;
    EXPECT_EQ(get(457), 0);
    EXPECT_EQ(get(456), 1); // has the low byte 200
    EXPECT_EQ(console_of(DTFuncLog_ShowFunc, log) + show("open", 0, 9) + show(nullptr, 0, 9), "\n");
    DTFuncLog_Ignore(log, log->ignore + 5);
    EXPECT_EQ(log->ignore, 5u);
}
