#include "support/files.h"
#include "support/store.h"
#include "support/wire.h"

#include <unistd.h>

namespace {

const std::string end_mark("\0\0", 2);

// A log line's two entries. The log is its word and its fault's name, as in "run pump ".
std::string line(const std::string &log, const std::string &text) {
    return counted(log + "11/16 18:44:43 ") + counted(log + text);
}

std::string value(char kind, const std::string &name, uint32_t first, uint32_t second,
                  const std::string &data = "") {
    return counted(static_cast<char>(name.size() + 1) + (kind + name) + word(first) + word(second) +
                   data);
}

DTFault *pump, *late;

struct FaultLogFile : RecordsTest {
    FaultLogFile() { pump = DTFault_Regist("pump", nullptr); }

    std::string written() {
        DTFault_Start();
        return fault_log.content();
    }
};

} // namespace

TEST_F(FaultLogFile, HoldsInitBeforeRunForEachFaultAndNoRecordOfNobody) {
    const std::string longer(300, 'b');
    DTFault *unnamed = DTFault_Regist("", nullptr);
    DTList_Append(g_DTFault_List, 0); // an empty position
    for (DTFault *fault : {unnamed, pump}) {
        DTFault_SetRunLog(fault, 1, 0, longer.c_str());
        DTFault_SetInitLog(fault, 1, 0, fault == pump ? "a" : "");
        DTFault_SetRegist(fault, 1, 2);
    }
    for (const std::string key : {"\3\2", "\3\7", "\3", "\3\1\1", "\x09\1"}) // a kind of one's own
        append(g_DTFault_Info, key, "12345678");
    EXPECT_EQ(written(), line("log pump ", "a") + line("run pump ", longer) + line("log  ", "") +
                             line("run  ", longer) + end_mark + value(0, "", 1, 2) +
                             value(0, "pump", 1, 2) + value(9, "", 0x34333231, 0x38373635));
}

// A callback's own values go into the file of its pass; a pass begun by it is refused; what it
// registers is not called, its logs wait for the next pass and only its values are there already.
TEST_F(FaultLogFile, CallbacksRunBeforeTheFileIsWritten) {
    pump->callback = [] {
        DTFault_SetCounter(pump, 1, 2);
        DTFault_Start();
        late = DTFault_Regist("late", [] { DTFault_SetCounter(late, 5, 6); });
        DTFault_SetRunLog(late, 1, 0, "later");
        DTFault_SetCounter(late, 3, 4);
        pump->callback = nullptr;
    };
    EXPECT_EQ(written(), end_mark + value(3, "pump", 1, 2) + value(3, "late", 3, 4));
    EXPECT_EQ(platform.take_console(), "start callback [pump]\nend callback [pump]\n");
    EXPECT_EQ(fault_log.opened, 1);
    EXPECT_EQ(written(), std::string("\x18\0run late 11/16 18:44:43 \x0E\0run late later\0\0"
                                     "\x0E\0\5\3late\5\0\0\0\6\0\0\0",
                                     60)); // to the byte
    EXPECT_EQ(platform.take_console(), "start callback [late]\nend callback [late]\n");
    late->callback = nullptr;
    EXPECT_EQ(written(), line("run late ", "later") + end_mark);
}

// The first takes itself off the list: the third comes to the place of the second, which takes the
// whole list away. Nobody is left for the file.
TEST_F(FaultLogFile, CallbacksMayChangeTheRegistry) {
    pump->callback = [] { DTList_Popup(g_DTFault_List); };
    for (const char *name : {"second", "third", "fourth"})
        DTFault_Regist(name, [] { g_DTFault_List = nullptr; });
    DTFault_SetCounter(pump, 1, 2);
    EXPECT_EQ(written(), end_mark);
    EXPECT_EQ(platform.take_console(), "start callback [pump]\nend callback [pump]\n"
                                       "start callback [third]\nend callback [third]\n");
    DTFault_Start(); // without a fault there is no pass
    EXPECT_EQ(fault_log.opened, 1);
}

// Nobody is told of a full device: the values are gone, and the next pass is written as ever.
TEST_F(FaultLogFile, WaitsForAFileThatCannotBeMadeAndIsGivenUpOnAFullDevice) {
    const unsigned blocks = platform.blocks;
    DTFault_SetCounter(pump, 1, 2);
    fault_log.broken = true;
    DTFault_Start();
    DTFault_SetCounter(pump, 3, 4);
    fault_log.broken = false;
    EXPECT_EQ(written(), end_mark + value(3, "pump", 1, 2) + value(3, "pump", 3, 4));
    EXPECT_EQ(platform.blocks, blocks);
    DTFault_SetRunLog(pump, 1, 0, std::string(9000, 'x').c_str()); // more than a stream buffers
    DTFault_SetCounter(pump, 1, 2);
    fault_log.full = true;
    const int before = dup(0);
    close(before);
    DTFault_Start();
    EXPECT_EQ(dup(0), before);
    EXPECT_EQ(g_DTFault_Info, nullptr);
    fault_log.full = false;
    DTFault_SetCounter(pump, 3, 4);
    EXPECT_TRUE(written().ends_with("x" + end_mark + value(3, "pump", 3, 4)));
}

TEST_F(FaultLogFile, CutsDataThatAnEntrysLengthCannotCount) {
    const std::string data(65530, 't');
    DTFault_SetRunLog(pump, 1, 0, data.c_str());
    DTFault_SetValue(pump, 1, data.data(), 65527);
    EXPECT_TRUE(written() == line("run pump ", data.substr(0, 65535 - 9)) + end_mark +
                                 value(6, "pump", 1, 65527, data.substr(0, 65535 - 14)));
}
