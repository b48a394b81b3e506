// The three output formats, and what they do with awkward bytes.
#include "dtctl/faults/printer.h"
#include "dtctl/output/printer.h"
#include "host/text.h"

#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using dtctl::Format, dtctl::OutputOptions;

namespace {

// DEL, C1, a line break and a change of direction.
const std::string controls = "\x7F\xC2\x80\xE2\x80\xA9\xE2\x80\xAE";

std::string printed(const OutputOptions &options) {
    using dt::decode::Kind;
    const Outcome outcome = outcome_of([&options](std::FILE *out) {
        const auto printer = dtctl::make_printer(options, out);
        printer->start("10.0.0.9", 0);
        printer->on_opening({1, {0xA1, 0x02}});
        printer->flush();
        EXPECT_EQ(std::ftell(out), 0); // headings wait for values
        printer->on_selftest({"=a,b"});
        printer->on_value({Kind::int32, 1, 0, 2, 0xFFFFFFFF, "", "pump"});
        printer->on_value({Kind::int64, 1, 4294967295, 0, 1ULL << 53, "", "pump"});
        printer->on_value({Kind::string, 3, 0, 0, 0, "say \"\xC3\xBC\",\nok", std::nullopt});
        printer->on_value({Kind::string, 1, 0, 0, 0, "\x1B\xFC", "p\xFF"});
        printer->on_value({Kind::string, 1, 0, 0, 0, controls, "-p"});
        printer->on_value({Kind::string, 1, 0, 0, 0, "\t@", "'"});
        printer->on_value({Kind::string, 1, 0, 0, 0, "+\r\n", ""});
        printer->on_value({Kind::buffer, 1, 0, 0, 0, "ab\0"s, "pump"});
    });
    return outcome.output;
}

std::string printed_faults(const OutputOptions &options) {
    using dt::decode::FaultKind, dt::decode::FaultLog;
    const Outcome outcome = outcome_of([&options](std::FILE *out) {
        const auto printer = dtctl::make_fault_printer(options, out);
        printer->on_line({FaultLog::init, "a,b", "11/16 19:00:10", "=hi\nok"});
        printer->on_line({FaultLog::run, "p\xFF", std::nullopt, "\x1F[1m\x7F"});
        printer->on_line({FaultLog::run, "", "11/16 19:00:10", std::nullopt});
        printer->on_fault_value({FaultKind::reg, "a,b", 1, 0xFFFFFFFE, ""});
        printer->on_fault_value({FaultKind::counter64, "p", 4294967295, 1ULL << 63, ""});
        printer->on_fault_value({FaultKind::reg_data, "p", 2, 0, "on,\t"});
        printer->on_fault_value({FaultKind::value, "p", 6, 0, "\0a"s});
    });
    return outcome.output;
}

TEST(Printers, Table) {
    EXPECT_EQ(printed({.format = Format::table}),
              "device identity a102\n\n"
              "collector              section        key  type      value\n"
              "=a,b                                       selftest\n"
              "pump                         0          2  int       4294967295 (-1)\n"
              "pump                4294967295          0  long      9007199254740992\n"
              "#3                           0          0  string    say \"\xC3\xBC\",\\nok\n"
              "p\\xff                        0          0  string    \\x1b\\xfc\n"
              "-p                           0          0  string    "
              "\\x7f\\xc2\\x80\\xe2\\x80\\xa9\\xe2\\x80\\xae\n"
              "'                            0          0  string    \\t@\n"
              "                             0          0  string    +\\r\\n\n"
              "pump                         0          0  buffer    616200\n");
    EXPECT_EQ(printed_faults({.format = Format::table}),
              "log            fault                   time                 text\n"
              "init           a,b                     11/16 19:00:10       =hi\\nok\n"
              "run            p\\xff                   (no time)            \\x1f[1m\\x7f\n"
              "run                                    11/16 19:00:10       (no text)\n\n"
              "kind           fault                   id                   value\n"
              "register       a,b                     1                    4294967294 (-2)\n"
              "counter64      p                       4294967295           9223372036854775808 "
              "(-9223372036854775808)\n"
              "register-data  p                       2                    6f6e2c09 (on,\\t)\n"
              "value          p                       6                    0061\n");
}

TEST(Printers, JsonLines) {
    EXPECT_EQ(printed({.format = Format::json}),
              R"({"device":"10.0.0.9","identity":"a102","collector":"=a,b","type":"selftest"}
{"device":"10.0.0.9","identity":"a102","collector":"pump","index":1,"section":0,"key":2,"type":"int","value":4294967295}
{"device":"10.0.0.9","identity":"a102","collector":"pump","index":1,"section":4294967295,"key":0,"type":"long","value":"9007199254740992"}
{"device":"10.0.0.9","identity":"a102","collector":null,"index":3,"section":0,"key":0,"type":"string","text":"say \"ü\",\nok"}
{"device":"10.0.0.9","identity":"a102","collector_hex":"70ff","index":1,"section":0,"key":0,"type":"string","hex":"1bfc"}
{"device":"10.0.0.9","identity":"a102","collector":"-p","index":1,"section":0,"key":0,"type":"string","text":"\u007f\u0080\u2029\u202e"}
{"device":"10.0.0.9","identity":"a102","collector":"'","index":1,"section":0,"key":0,"type":"string","text":"\t@"}
{"device":"10.0.0.9","identity":"a102","collector":"","index":1,"section":0,"key":0,"type":"string","text":"+\r\n"}
{"device":"10.0.0.9","identity":"a102","collector":"pump","index":1,"section":0,"key":0,"type":"buffer","hex":"616200"}
)");
    EXPECT_EQ(printed_faults({.format = Format::json}),
              R"({"type":"init","fault":"a,b","time":"11/16 19:00:10","text":"=hi\nok"}
{"type":"run","fault_hex":"70ff","time":null,"text":"\u001f[1m\u007f"}
{"type":"run","fault":"","time":"11/16 19:00:10","text":null}
{"type":"register","fault":"a,b","id":1,"value":4294967294}
{"type":"counter64","fault":"p","id":4294967295,"value":"9223372036854775808"}
{"type":"register-data","fault":"p","id":2,"hex":"6f6e2c09"}
{"type":"value","fault":"p","id":6,"hex":"0061"}
)");
}

TEST(Printers, Csv) {
    std::string text = printed({.format = Format::csv});
    EXPECT_EQ(text, "device,identity,collector,index,section,key,type,encoding,value\n"
                    "10.0.0.9,a102,\"'=a,b\",,,,selftest,,\n"
                    "10.0.0.9,a102,pump,1,0,2,int,decimal,4294967295\n"
                    "10.0.0.9,a102,pump,1,4294967295,0,long,decimal,9007199254740992\n"
                    "10.0.0.9,a102,,3,0,0,string,text,\"say \"\"\xC3\xBC\"\",\nok\"\n"
                    "10.0.0.9,a102,p\\xff,1,0,0,string,hex,1bfc\n"
                    "10.0.0.9,a102,'-p,1,0,0,string,hex,7fc280e280a9e280ae\n"
                    "10.0.0.9,a102,'',1,0,0,string,text,'\t@\n"
                    "10.0.0.9,a102,,1,0,0,string,hex,2b0d0a\n"
                    "10.0.0.9,a102,pump,1,0,0,buffer,hex,616200\n");
    text.erase(text.find("''"), 1); // and those that are the guard
    for (const char *guarded : {"'=", "'-", "'\t"}) text.erase(text.find(guarded), 1);
    EXPECT_EQ(printed({.format = Format::csv, .cells = dtctl::Cells::raw}), text);
    EXPECT_EQ(printed_faults({.format = Format::csv}),
              "type,fault,time,id,encoding,value\n"
              "init,\"a,b\",11/16 19:00:10,,text,\"'=hi\nok\"\n"
              "run,p\\xff,,,hex,1f5b316d7f\n"
              "run,,11/16 19:00:10,,,\n"
              "register,\"a,b\",,1,decimal,4294967294\n"
              "counter64,p,,4294967295,decimal,9223372036854775808\n"
              "register-data,p,,2,hex,6f6e2c09\n"
              "value,p,,6,hex,0061\n");
}

TEST(Printers, RunsWithoutValuesOrWithTimesBeyondTheCalendar) {
    const Outcome outcome = outcome_of([](std::FILE *out) {
        const auto printer = dtctl::make_printer({.format = Format::csv, .times = true}, out);
        for (const std::time_t when : {INT64_MIN, INT64_MAX}) { // as a broken capture may hold them
            printer->start("d", when);
            printer->on_opening({});
            printer->end();
            EXPECT_NE(std::ftell(out), 0);
            printer->on_selftest({"p"});
        }
    });
    EXPECT_EQ(outcome.output,
              "time,device,identity,collector,index,section,key,type,encoding,value\n"
              "1970-01-01T00:00:00Z,d,0000,p,,,,selftest,,\n"
              "9999-12-31T23:59:59Z,d,0000,p,,,,selftest,,\n");
}

// Overlong forms, surrogates, cut characters and what lies beyond Unicode are bytes, not text.
TEST(Text, OnlyWellFormedUtf8Passes) {
    for (const std::string text :
         {"\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(dtctl::character_length(text + "x"), text.size()) << dtctl::hex(text);
        const std::string_view cut = std::string_view(text).substr(0, text.size() - 1);
        EXPECT_EQ(dtctl::character_length(cut), 0u) << dtctl::hex(text);
    }
    for (const std::string text : {"\x80", "\xC1\xBF", "\xE0\x9F\x80", "\xED\xA0\x80",
                                   "\xF0\x8F\x80\x80", "\xF4\x90\x80\x80", "\xE1\x80\xC0"})
        EXPECT_EQ(dtctl::character_length(text), 0u) << dtctl::hex(text);
    EXPECT_EQ(dtctl::escape("\\\t\x7E\x7F\xC2\x9F\xC2\xA0\0"s),
              "\\\\\\t~\\x7f\\xc2\\x9f\xC2\xA0\\x00");
    const std::string shown = "\u061B\u061D\u200D\u2010\u2027\u202F\u2065\u206A";
    EXPECT_EQ(dtctl::escape(shown), shown);
    EXPECT_EQ(dtctl::escape_json("\u061C\u200E\u200F\u2028\u202E\u2066\u2069"),
              R"(\u061c\u200e\u200f\u2028\u202e\u2066\u2069)");
}

} // namespace
