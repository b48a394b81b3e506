#include "support/clock.h"
#include "support/platform.h"

#include <dt/records.h>
#include <gtest/gtest.h>

#include <string>

namespace {

constexpr DTFunc funcs[] = {
    {"open", "B", 3, "(device)"},
    {"read", "H2s", -1, "(blocks)"},
    {nullptr, nullptr, 0, nullptr},
};

struct FuncLog {
    DTFuncLog *log = DTFuncLog_New(funcs, 3, 0);

    FuncLog() { fake_clock.stand_at(a_sunday_evening); }
    ~FuncLog() { DTFuncLog_Release(log); }

    void add(uint8_t key, const std::string &fields) {
        std::string value(4, '\0');
        DTBuffer_Pack(value.data(), "T", static_cast<uint32_t>(a_sunday_evening));
        value += fields;
        DTInfo_Append(log->info, &key, 1, value.data(), static_cast<uint16_t>(value.size()));
    }
    std::string show(const char *name, int32_t from, int32_t count) {
        platform.take_console();
        DTFuncLog_Show(log, name, from, count);
        return platform.take_console();
    }
};

std::string opened(int number, const char *byte) {
    return "\nindex=" + std::to_string(number) +
           ",func:open (device)\n"
           "format:*TB\n"
           "0001[T]=>2014/11/16 18:44:43<\n"
           "0002[B]=>" +
           byte + "<\n";
}

std::string did_read(int number) {
    return "\nindex=" + std::to_string(number) +
           ",func:read (blocks)\n"
           "format:*TH2s\n"
           "0001[T]=>2014/11/16 18:44:43<\n"
           "0002[H]=>0x6261<\n"
           "0003[2s]=>cd<\n";
}

} // namespace

TEST(FuncLog, ListsTheTable) {
    FuncLog f;
    EXPECT_EQ(f.log->ignore, 0u);
    DTFuncLog_ShowFunc(f.log);
    EXPECT_EQ(platform.take_console(), "\n"
                                       "open(device)\n"
                                       "id:0;cnt:3;fmt:B\n"
                                       "read(blocks)\n"
                                       "id:1;cnt:-1;fmt:H2s\n"
                                       "\n"
                                       "id:2;cnt:0;fmt:\n");
}

TEST(FuncLog, NumbersTheRecordsThatItSelects) {
    FuncLog f;
    f.add(0, "\1");
    f.add(1, "abcd");
    f.add(0, "\2");
    f.add(0, "\3");
    EXPECT_EQ(f.show(nullptr, 0, 10),
              opened(0, "0x01") + did_read(1) + opened(2, "0x02") + opened(3, "0x03"));
    EXPECT_EQ(f.show("", 1, 2), did_read(1) + opened(2, "0x02"));
    EXPECT_EQ(f.show("open", 2, INT32_MAX), opened(2, "0x03"));
    EXPECT_EQ(f.show("read", 0, INT32_MAX), did_read(0));
    EXPECT_EQ(f.show("", -2, 3), opened(0, "0x01"));
    EXPECT_EQ(f.show("", 3, 0), "");
    EXPECT_EQ(f.show("", INT32_MIN, INT32_MAX), ""); // 2^31 at the first record is too many
    EXPECT_EQ(f.show("", 0, -1), "");
    EXPECT_EQ(f.show("close", 0, 10), "");
    EXPECT_EQ(f.show("ope", 0, 10), "");
}

TEST(FuncLog, EndsAtARecordOfNoFunction) {
    FuncLog f;
    f.add(0, "\1");
    f.add(3, "foreign");
    f.add(1, "abcd");
    EXPECT_EQ(f.show(nullptr, 0, 10), opened(0, "0x01"));
    EXPECT_EQ(f.show(nullptr, 2, 10), did_read(2)); // those in front of from are not looked at
    EXPECT_EQ(f.show("read", 0, 10), did_read(0));
    DTInfo_Clear(f.log->info);
    DTInfo_Append(f.log->info, nullptr, 0, "\0\0\0", 3);
    f.add(0, "\1");
    EXPECT_EQ(f.show(nullptr, 0, 10), "");
}

TEST(FuncLog, ShowsWhatThereIsOfAShortRecord) {
    FuncLog f;
    f.add(1, "ab\xFF");
    EXPECT_EQ(f.show("", 0, 1), "\nindex=0,func:read (blocks)\n"
                                "format:*TH2s\n"
                                "0001[T]=>2014/11/16 18:44:43<\n"
                                "0002[H]=>0x6261<\n");
}

TEST(FuncLog, ShowsTheFirst97CharactersOfAFormat) {
    const std::string blanks(94, '.');
    const std::string fits = blanks + "b2s", cut = blanks + "b12s", name(2000, 'n');
    const DTFunc table[] = {{"fits", fits.c_str(), 0, ""}, {name.c_str(), cut.c_str(), 0, "d"}};
    FuncLog f;
    f.log->funcs = table;
    f.log->func_count = 2;
    f.add(0, "\1xy");
    f.add(1, "\1x");
    EXPECT_EQ(f.show("", 0, 2), "\nindex=0,func:fits \nformat:*T" + fits +
                                    "\n0001[T]=>2014/11/16 18:44:43<\n0002[B]=>1<\n"
                                    "0003[2s]=>xy<\n\nindex=1,func:" +
                                    name + " d\nformat:*T" + blanks +
                                    "b12\n0001[T]=>2014/11/16 18:44:43<\n0002[B]=>1<\n");
}

TEST(FuncLog, GetsRecordsAndTheirOwners) {
    FuncLog f;
    f.add(0, "\1");
    f.add(200, "foreign");
    uint32_t pos = DTINFO_FIRST, id = 7, length = 7;
    const uint8_t *value = nullptr;
    EXPECT_EQ(DTFuncLog_Get(f.log, 3, &pos, &id, &value, &length), 0);
    EXPECT_EQ(DTFuncLog_Get(f.log, 1, &pos, &id, &value, &length), 0);
    EXPECT_EQ(DTFuncLog_Get(nullptr, 0, &pos, &id, &value, &length), 0);
    EXPECT_EQ(id + length, 14u);
    pos = DTINFO_FIRST;
    EXPECT_EQ(DTFuncLog_Get(f.log, DTFUNCLOG_ANY, &pos, &id, &value, &length), 1);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(value[4], 1);
    EXPECT_EQ(DTFuncLog_Get(f.log, INT32_MIN, &pos, &id, nullptr, nullptr), 1);
    EXPECT_EQ(id, 200u);
    EXPECT_EQ(DTFuncLog_Get(f.log, -1, &pos, &id, &value, &length), 0);
    f.log->func_count = 1000; // index 456 has the low byte 200
    pos = DTINFO_FIRST;
    EXPECT_EQ(DTFuncLog_Get(f.log, 456, &pos, &id, &value, &length), 0);
    EXPECT_EQ(DTFuncLog_Get(f.log, 200, &pos, nullptr, &value, &length), 1);
}

TEST(FuncLog, IsMadeWholeOrNotAtAll) {
    unsigned fails = 0;
    for (DTFuncLog *log = nullptr; !log; ++fails) {
        platform.fail_allocations_from(fails + 1);
        log = DTFuncLog_New(funcs, 3, 1024);
        DTFuncLog_Ignore(log, 5);
        EXPECT_TRUE(!log || log->ignore == 5);
        DTFuncLog_Release(log);
        EXPECT_EQ(platform.blocks, 0u);
    }
    EXPECT_EQ(fails, 4u); // log, store, ring; then none
}

TEST(FuncLog, NullsAreEmpty) {
    DTFuncLog_Show(nullptr, nullptr, 0, 1);
    DTFuncLog_ShowFunc(nullptr);
    EXPECT_EQ(platform.take_console(), "");
    DTFuncLog *log = DTFuncLog_New(nullptr, 2, 0);
    DTInfo_Append(log->info, "", 1, "1234", 4);
    DTFuncLog_ShowFunc(log);
    DTFuncLog_Show(log, nullptr, 0, 1);
    EXPECT_EQ(platform.take_console(), "\n");
    DTFuncLog_Release(log);
}
