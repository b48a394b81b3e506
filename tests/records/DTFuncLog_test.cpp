#include "support/platform.h"
#include "support/store.h"

namespace {

constexpr DTFunc funcs[] = {
    {"open", "B", 3, "(device)"},
    {"read", "H2s", -1, "(blocks)"},
    {nullptr, nullptr, 0, nullptr},
};

struct FuncLog : RecordsTest {
    DTFuncLog *log = DTFuncLog_New(funcs, 3, 1024);

    void add(uint8_t key, const std::string &fields) {
        const uint32_t now = a_sunday_evening;
        DTInfo_Append2Message(log->info, &key, 1, &now, 4, fields.data(),
                              static_cast<uint16_t>(fields.size()));
    }
    std::string show(const char *name, int32_t from, int32_t count) {
        DTFuncLog_Show(log, name, from, count);
        return platform.take_console();
    }
};

std::string shown(int number, const std::string &func, const std::string &format) {
    return "\nindex=" + std::to_string(number) + ",func:" + func + "\nformat:*T" + format +
           "\n0001[T]=>2014/11/16 18:44:43<\n0002";
}

std::string opened(int number, int byte) {
    return shown(number, "open (device)", "B") + "[B]=>0x0" + std::to_string(byte) + "<\n";
}

std::string did_read(int number, const char *end = "0003[2s]=>cd<\n") {
    return shown(number, "read (blocks)", "H2s") + "[H]=>0x6261<\n" + end;
}

} // namespace

TEST_F(FuncLog, ListsTheTable) {
    DTFuncLog_ShowFunc(log);
    EXPECT_EQ(platform.take_console(), "\nopen(device)\nid:0;cnt:3;fmt:B\n"
                                       "read(blocks)\nid:1;cnt:-1;fmt:H2s\n"
                                       "\nid:2;cnt:0;fmt:\n");
}

TEST_F(FuncLog, NumbersTheRecordsThatItSelects) {
    add(0, "\1");
    add(1, "abcd");
    for (const char *byte : {"\2", "\3"}) add(0, byte);
    EXPECT_EQ(show(nullptr, 0, 10), opened(0, 1) + did_read(1) + opened(2, 2) + opened(3, 3));
    EXPECT_EQ(show("", 1, 2), did_read(1) + opened(2, 2));
    EXPECT_EQ(show("open", 2, INT32_MAX), opened(2, 3));
    EXPECT_EQ(show("", -2, 3), opened(0, 1));
    EXPECT_EQ(show("", INT32_MIN, INT32_MAX), ""); // 2^31 at the first record is too many
    EXPECT_EQ(show("", 0, -1) + show("close", 0, 10) + show("ope", 0, 10), "");
}

TEST_F(FuncLog, EndsAtARecordOfNoFunction) {
    add(0, "\1");
    add(3, "foreign");
    add(1, "ab\xFF");
    EXPECT_EQ(show(nullptr, 0, 10), opened(0, 1));
    EXPECT_EQ(show(nullptr, 2, 10), did_read(2, "")); // those in front of from are not looked at
    DTInfo_Clear(log->info);
    DTInfo_Append(log->info, nullptr, 0, "\1", 1);
    EXPECT_EQ(show(nullptr, 0, 10), "");
}

TEST_F(FuncLog, ShowsTheFirst97CharactersOfAFormat) {
    const std::string blanks(94, '.'), fits = blanks + "b2s", cut = blanks + "b12s";
    const std::string name(2000, 'n');
    const DTFunc table[] = {{"fits", fits.c_str(), 0, ""}, {name.c_str(), cut.c_str(), 0, "d"}};
    log->funcs = table;
    add(0, "\1xy");
    add(1, "\1x");
    EXPECT_EQ(show("", 0, 2), shown(0, "fits ", fits) + "[B]=>1<\n0003[2s]=>xy<\n" +
                                  shown(1, name + " d", blanks + "b12") + "[B]=>1<\n");
}

TEST_F(FuncLog, GetsRecordsAndTheirOwners) {
    add(0, "\1");
    add(200, "foreign");
    uint32_t pos = DTINFO_FIRST, id = 7, length = 7;
    const uint8_t *value = nullptr;
    const auto get = [&](int32_t index) {
        return DTFuncLog_Get(log, index, &pos, &id, &value, &length);
    };
    EXPECT_EQ(get(1), 0);
    pos = DTINFO_FIRST;
    EXPECT_EQ(get(DTFUNCLOG_ANY), 1);
    EXPECT_EQ(id * 100 + length * 10 + value[4], 51u);
    EXPECT_EQ(get(INT32_MIN), 1);
    EXPECT_EQ(id, 200u);
    EXPECT_EQ(get(-1), 0);
    for (const int32_t index : {200, 456}) { // 456 has the low byte 200
        pos = DTINFO_FIRST;
        log->func_count = index;
        EXPECT_EQ(get(index), 0);
    }
    EXPECT_EQ(get(200), 1);
}
