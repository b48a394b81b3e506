#include "support/clock.h"
#include "support/files.h"
#include "support/platform.h"

#include <dt/fault.h>
#include <gmock/gmock.h>

#include <string.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string half(size_t value) { return {static_cast<char>(value), static_cast<char>(value >> 8)}; }

std::string log_entry(const std::string &word, const std::string &name, const std::string &data) {
    const std::string all = word + " " + name + " " + data;
    return half(all.size()) + all;
}

std::string value_entry(char kind, const std::string &name, const std::string &data) {
    return half(2 + name.size() + data.size()) + static_cast<char>(name.size() + 1) + kind + name +
           data;
}

std::string numbers(uint32_t first, uint32_t second) {
    const uint32_t both[] = {first, second};
    return std::string(reinterpret_cast<const char *>(both), 8);
}

const std::string end_mark("\0\0", 2);
const std::string stamp = "11/16 19:00:10 ";

class FaultLogFile : public testing::Test {
protected:
    void SetUp() override {
        fake_clock.stand_at(a_sunday_evening + 927);
        DTInfo_SetTrace(0);
    }
};

DTFault *pump, *late;

} // namespace

TEST_F(FaultLogFile, IsLaidOutToTheByte) {
    pump = DTFault_Regist("pump", nullptr);
    DTFault_SetRunLog(pump, 1, 0, "started");
    DTFault_SetCounter(pump, 7, 100);
    DTFault_Start();
    EXPECT_EQ(fault_log.content(),
              std::string("\x18\0run pump 11/16 19:00:10 \x10\0run pump started\0\0"
                          "\x0E\0\x05\x03pump\x07\0\0\0\x64\0\0\0",
                          62));
    EXPECT_EQ(platform.take_console(), "");
    EXPECT_EQ(g_DTFault_Info, nullptr);
}

TEST_F(FaultLogFile, HoldsInitBeforeRunForEachFault) {
    pump = DTFault_Regist("pump", nullptr);
    DTFault *unnamed = DTFault_Regist("", nullptr);
    DTFault_SetRunLog(unnamed, 1, 0, "d");
    DTFault_SetRunLog(pump, 1, 0, "b");
    DTFault_SetInitLog(unnamed, 1, 0, "");
    DTFault_SetInitLog(pump, 1, 0, "a");
    DTFault_SetRegist(unnamed, 1, 2);
    DTFault_SetRegist(pump, 3, 4);
    DTFault_Start();
    EXPECT_EQ(fault_log.content(),
              log_entry("log", "pump", stamp) + log_entry("log", "pump", "a") +
                  log_entry("run", "pump", stamp) + log_entry("run", "pump", "b") +
                  log_entry("log", "", stamp) + log_entry("log", "", "") +
                  log_entry("run", "", stamp) + log_entry("run", "", "d") + end_mark +
                  value_entry(0, "", numbers(1, 2)) + value_entry(0, "pump", numbers(3, 4)));
}

TEST_F(FaultLogFile, NothingIsWrittenWithoutAFault) {
    DTFault_Start();
    EXPECT_EQ(fault_log.opened, 0);
    pump = DTFault_Regist("pump", nullptr);
    DTFault_Start();
    EXPECT_EQ(fault_log.content(), end_mark);
}

// A callback's own values go into the file of its pass; a pass begun by it is refused; what it
// registers is not called, its logs wait for the next pass and only its values are there already.
TEST_F(FaultLogFile, CallbacksRunBeforeTheFileIsWritten) {
    pump = DTFault_Regist("pump", [] {
        DTFault_SetCounter(pump, 1, 2);
        DTFault_Start();
        late = DTFault_Regist("late", [] { DTFault_SetCounter(late, 5, 6); });
        DTFault_SetRunLog(late, 1, 0, "later");
        DTFault_SetCounter(late, 3, 4);
        pump->callback = nullptr;
    });
    DTFault_Start();
    EXPECT_EQ(platform.take_console(), "start callback [pump]\nend callback [pump]\n");
    EXPECT_EQ(fault_log.opened, 1);
    EXPECT_EQ(fault_log.content(), end_mark + value_entry(3, "pump", numbers(1, 2)) +
                                       value_entry(3, "late", numbers(3, 4)));
    DTFault_Start();
    EXPECT_EQ(platform.take_console(), "start callback [late]\nend callback [late]\n");
    const std::string logs = log_entry("run", "late", stamp) + log_entry("run", "late", "later");
    EXPECT_EQ(fault_log.content(), logs + end_mark + value_entry(3, "late", numbers(5, 6)));
    late->callback = nullptr;
    DTFault_Start();
    EXPECT_EQ(fault_log.content(), logs + end_mark);
}

TEST_F(FaultLogFile, SkipsRecordsThatBelongToNoFault) {
    pump = DTFault_Regist("pump", nullptr);
    DTFault_SetCounter(pump, 1, 2);
    DTInfo_Append(g_DTFault_Info, "\3\1", 2, "12345678", 8); // there is no second fault
    DTInfo_Append(g_DTFault_Info, "\3", 1, "12345678", 8);
    DTInfo_Append(g_DTFault_Info, "\3\0\0", 3, "12345678", 8);
    DTInfo_Append(g_DTFault_Info, "\x09\0", 2, "", 0); // a kind of the application's own
    DTList_Append(g_DTFault_List, 0);                  // an empty position
    DTFault_Start();
    EXPECT_EQ(fault_log.content(),
              end_mark + value_entry(3, "pump", numbers(1, 2)) + value_entry(9, "pump", ""));
}

TEST_F(FaultLogFile, WaitsForAFileThatCannotBeMade) {
    pump = DTFault_Regist("pump", nullptr);
    DTFault_SetCounter(pump, 1, 2);
    fault_log.broken = true;
    DTFault_Start();
    ASSERT_NE(g_DTFault_Info, nullptr);
    DTFault_SetCounter(pump, 3, 4);
    fault_log.broken = false;
    DTFault_Start();
    EXPECT_EQ(fault_log.content(), end_mark + value_entry(3, "pump", numbers(1, 2)) +
                                       value_entry(3, "pump", numbers(3, 4)));
}

TEST_F(FaultLogFile, CutsDataThatAnEntrysLengthCannotCount) {
    pump = DTFault_Regist("pump", nullptr);
    const std::string text(65530, 't'), data(65527, 'd');
    DTFault_SetRunLog(pump, 1, 0, text.c_str());
    DTFault_SetValue(pump, 1, data.data(), 65527);
    DTFault_Start();
    const std::string logs =
        log_entry("run", "pump", stamp) + log_entry("run", "pump", text.substr(0, 65535 - 9));
    const std::string values = value_entry(6, "pump", numbers(1, 65527) + data.substr(6));
    EXPECT_TRUE(fault_log.content() == logs + end_mark + values);
}

TEST_F(FaultLogFile, LogsThatCouldNotBeMadeAreLeftOut) {
    platform.fail_only(2);
    pump = DTFault_Regist("pump", nullptr);
    DTFault_SetInitLog(pump, 1, 0, "nowhere");
    DTFault_SetRunLog(pump, 1, 0, "here");
    DTFault_Start();
    EXPECT_EQ(fault_log.content(),
              log_entry("run", "pump", stamp) + log_entry("run", "pump", "here") + end_mark);
}
