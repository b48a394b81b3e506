// The three output formats, and what they do with awkward bytes.
#include "dtctl/faults/printer.h"
#include "dtctl/output/printer.h"
#include "host/text.h"

#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using dtctl::Format;

namespace {

std::string printed(Format format) {
    using dt::decode::Kind;
    const Outcome outcome = outcome_of([format](std::FILE *out) {
        const auto printer = dtctl::make_printer(format, out);
        printer->on_opening({1, {0xA1, 0x02}});
        printer->on_selftest({"a,b"});
        printer->on_value({Kind::int32, 1, 0, 2, 0xFFFFFFFF, "", "pump"});
        printer->on_value({Kind::int64, 1, 4294967295, 0, 1ULL << 53, "", "pump"});
        printer->on_value({Kind::string, 3, 0, 0, 0, "say \"\xC3\xBC\",\nok", std::nullopt});
        printer->on_value({Kind::string, 1, 0, 0, 0, "\x1B\xFC", "p\xFF"});
        printer->on_value({Kind::buffer, 1, 0, 0, 0, "ab\0"s, "pump"});
    });
    return outcome.output;
}

std::string printed_faults(Format format) {
    using dt::decode::FaultKind, dt::decode::FaultLog;
    const Outcome outcome = outcome_of([format](std::FILE *out) {
        const auto printer = dtctl::make_fault_printer(format, out);
        printer->on_line({FaultLog::init, "a,b", "11/16 19:00:10", "hi\nok"});
        printer->on_line({FaultLog::run, "p\xFF", std::nullopt, "\x1F[1m"});
        printer->on_line({FaultLog::run, "", "11/16 19:00:10", std::nullopt});
        printer->on_fault_value({FaultKind::reg, "a,b", 1, 0xFFFFFFFE, ""});
        printer->on_fault_value({FaultKind::counter64, "p", 4294967295, 1ULL << 63, ""});
        printer->on_fault_value({FaultKind::reg_data, "p", 2, 0, "on,\t"});
        printer->on_fault_value({FaultKind::value, "p", 6, 0, "\0a"s});
    });
    return outcome.output;
}

TEST(Printers, Table) {
    EXPECT_EQ(printed(Format::table),
              "device identity a102\n\n"
              "collector              section        key  type      value\n"
              "a,b                                        selftest\n"
              "pump                         0          2  int       4294967295 (-1)\n"
              "pump                4294967295          0  long      9007199254740992\n"
              "#3                           0          0  string    say \"\xC3\xBC\",\\nok\n"
              "p\\xff                        0          0  string    \\x1b\\xfc\n"
              "pump                         0          0  buffer    616200\n");
    EXPECT_EQ(printed_faults(Format::table),
              "log            fault                   time                 text\n"
              "init           a,b                     11/16 19:00:10       hi\\nok\n"
              "run            p\\xff                   (no time)            \\x1f[1m\n"
              "run                                    11/16 19:00:10       (no text)\n\n"
              "kind           fault                   id                   value\n"
              "register       a,b                     1                    4294967294 (-2)\n"
              "counter64      p                       4294967295           9223372036854775808 "
              "(-9223372036854775808)\n"
              "register-data  p                       2                    6f6e2c09 (on,\\t)\n"
              "value          p                       6                    0061\n");
}

TEST(Printers, JsonLines) {
    EXPECT_EQ(printed(Format::json),
              R"({"identity":"a102","collector":"a,b","type":"selftest"}
{"identity":"a102","collector":"pump","index":1,"section":0,"key":2,"type":"int","value":4294967295}
{"identity":"a102","collector":"pump","index":1,"section":4294967295,"key":0,"type":"long","value":"9007199254740992"}
{"identity":"a102","collector":null,"index":3,"section":0,"key":0,"type":"string","text":"say \"ü\",\nok"}
{"identity":"a102","collector_hex":"70ff","index":1,"section":0,"key":0,"type":"string","hex":"1bfc"}
{"identity":"a102","collector":"pump","index":1,"section":0,"key":0,"type":"buffer","hex":"616200"}
)");
    EXPECT_EQ(printed_faults(Format::json),
              R"({"type":"init","fault":"a,b","time":"11/16 19:00:10","text":"hi\nok"}
{"type":"run","fault_hex":"70ff","time":null,"text":"\u001f[1m"}
{"type":"run","fault":"","time":"11/16 19:00:10","text":null}
{"type":"register","fault":"a,b","id":1,"value":4294967294}
{"type":"counter64","fault":"p","id":4294967295,"value":"9223372036854775808"}
{"type":"register-data","fault":"p","id":2,"hex":"6f6e2c09"}
{"type":"value","fault":"p","id":6,"hex":"0061"}
)");
}

TEST(Printers, Csv) {
    EXPECT_EQ(printed(Format::csv), "identity,collector,index,section,key,type,encoding,value\n"
                                    "a102,\"a,b\",,,,selftest,,\n"
                                    "a102,pump,1,0,2,int,decimal,4294967295\n"
                                    "a102,pump,1,4294967295,0,long,decimal,9007199254740992\n"
                                    "a102,,3,0,0,string,text,\"say \"\"\xC3\xBC\"\",\nok\"\n"
                                    "a102,p\\xff,1,0,0,string,hex,1bfc\n"
                                    "a102,pump,1,0,0,buffer,hex,616200\n");
    EXPECT_EQ(printed_faults(Format::csv), "type,fault,time,id,encoding,value\n"
                                           "init,\"a,b\",11/16 19:00:10,,text,\"hi\nok\"\n"
                                           "run,p\\xff,,,hex,1f5b316d\n"
                                           "run,,11/16 19:00:10,,,\n"
                                           "register,\"a,b\",,1,decimal,4294967294\n"
                                           "counter64,p,,4294967295,decimal,9223372036854775808\n"
                                           "register-data,p,,2,hex,6f6e2c09\n"
                                           "value,p,,6,hex,0061\n");
}

// As a broken capture may hold them.
TEST(Printers, TimesBeyondTheCalendarAreTheNearestWithinIt) {
    const Outcome outcome = outcome_of([](std::FILE *out) {
        const auto printer = dtctl::make_printer(Format::json, out, true);
        for (const std::time_t when : {INT64_MIN, INT64_MAX}) {
            printer->start(when);
            printer->on_selftest({"p"});
        }
    });
    EXPECT_EQ(outcome.output,
              R"({"time":"1970-01-01T00:00:00Z","identity":"","collector":"p","type":"selftest"}
{"time":"9999-12-31T23:59:59Z","identity":"","collector":"p","type":"selftest"}
)");
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
    EXPECT_EQ(dtctl::escape("\\\t\x7F\xC2\x9B\xC2\xA0\0"s), "\\\\\\t\\x7f\\xc2\\x9b\xC2\xA0\\x00");
}

} // namespace
