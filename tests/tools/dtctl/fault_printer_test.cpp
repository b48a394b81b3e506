// The fault log's three output formats, and a file from its bytes to the exit code.
#include "dtctl/failure.h"
#include "dtctl/fault_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

using namespace std::string_literals;
using dt::decode::FaultKind;
using dt::decode::FaultLog;
using dtctl::Format;

namespace {

// What a printer writes in the course of an action.
template <typename Action> std::string printed(Format format, Action action) {
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    const auto printer = dtctl::make_fault_printer(format, out);
    action(*printer);
    printer->flush();
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

void print_all(dtctl::FaultPrinter &printer) {
    printer.on_line({FaultLog::init, "a,b", "11/16 19:00:10", "say \"hi\",\nok"});
    printer.on_line({FaultLog::run, "p\xFF", std::nullopt, "\x1B\xFC"});
    printer.on_line({FaultLog::run, "", "11/16 19:00:10", std::nullopt});
    printer.on_fault_value({FaultKind::reg, "a,b", 1, 0xFFFFFFFE, ""});
    printer.on_fault_value({FaultKind::reg64, "p", 4294967295, 1ULL << 63, ""});
    printer.on_fault_value({FaultKind::reg_data, "p", 2, 0, "on,\n"});
    printer.on_fault_value({FaultKind::counter, "p", 3, 7, ""});
    printer.on_fault_value({FaultKind::counter64, "p", 4, 0xFFFFFFFF, ""});
    printer.on_fault_value({FaultKind::counter_data, "p", 5, 0, ""});
    printer.on_fault_value({FaultKind::value, "p", 6, 0, "\0a"s});
}

TEST(FaultPrinters, Table) {
    EXPECT_EQ(printed(Format::table, print_all),
              "log            fault                   time                 text\n"
              "init           a,b                     11/16 19:00:10       say \"hi\",\\nok\n"
              "run            p\\xff                   (no time)            \\x1b\\xfc\n"
              "run                                    11/16 19:00:10       (no text)\n\n"
              "kind           fault                   id                   value\n"
              "register       a,b                     1                    4294967294 (-2)\n"
              "register64     p                       4294967295           9223372036854775808 "
              "(-9223372036854775808)\n"
              "register-data  p                       2                    6f6e2c0a (on,\\n)\n"
              "counter        p                       3                    7\n"
              "counter64      p                       4                    4294967295\n"
              "counter-data   p                       5                    \n"
              "value          p                       6                    0061\n");
}

TEST(FaultPrinters, JsonLines) {
    EXPECT_EQ(printed(Format::json, print_all),
              R"({"type":"init","fault":"a,b","time":"11/16 19:00:10","text":"say \"hi\",\nok"}
{"type":"run","fault_hex":"70ff","time":null,"hex":"1bfc"}
{"type":"run","fault":"","time":"11/16 19:00:10","text":null}
{"type":"register","fault":"a,b","id":1,"value":4294967294}
{"type":"register64","fault":"p","id":4294967295,"value":"9223372036854775808"}
{"type":"register-data","fault":"p","id":2,"hex":"6f6e2c0a"}
{"type":"counter","fault":"p","id":3,"value":7}
{"type":"counter64","fault":"p","id":4,"value":"4294967295"}
{"type":"counter-data","fault":"p","id":5,"hex":""}
{"type":"value","fault":"p","id":6,"hex":"0061"}
)");
}

TEST(FaultPrinters, Csv) {
    EXPECT_EQ(printed(Format::csv, print_all),
              "type,fault,time,id,encoding,value\n"
              "init,\"a,b\",11/16 19:00:10,,text,\"say \"\"hi\"\",\nok\"\n"
              "run,p\\xff,,,hex,1bfc\n"
              "run,,11/16 19:00:10,,,\n"
              "register,\"a,b\",,1,decimal,4294967294\n"
              "register64,p,,4294967295,decimal,9223372036854775808\n"
              "register-data,p,,2,hex,6f6e2c0a\n"
              "counter,p,,3,decimal,7\n"
              "counter64,p,,4,decimal,4294967295\n"
              "counter-data,p,,5,hex,\n"
              "value,p,,6,hex,0061\n");
}

// What is left of a cut file is shown before the failure.
TEST(FaultFile, ACutFileIsShownUpToTheCut) {
    const std::string path = ::testing::TempDir() + "cut.log";
    std::ofstream(path) << "\x18\0run pump 11/16 19:00:10 \x10\0run"s;
    dtctl::Exit code = dtctl::Exit::success;
    std::string error;
    const std::string output = printed(Format::csv, [&](dtctl::FaultPrinter &printer) {
        try {
            dtctl::show_fault_log(path, printer);
        } catch (const dtctl::Failure &failure) {
            code = failure.code();
            error = failure.what();
        }
    });
    EXPECT_EQ(output, "type,fault,time,id,encoding,value\nrun,pump,11/16 19:00:10,,,\n");
    EXPECT_EQ(code, dtctl::Exit::broken);
    EXPECT_EQ(error, path + ": byte 31: the file ends inside the entry that begins at byte 26");
    std::remove(path.c_str());
}

} // namespace
