// The three output formats, and what they do with awkward bytes.
#include "dtctl/faults/printer.h"
#include "dtctl/output/printer.h"
#include "host/text.h"

#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace std::string_literals;
using dtctl::Format, dtctl::OutputOptions;

namespace {

// DEL, C1, a line break, a change of direction, and what spreadsheets take for a line break.
const std::string controls = "\x7F\xC2\x80\xE2\x80\xA9\xE2\x80\xAE\r";

// The last of two runs has no values. Times are as a broken capture may hold them.
std::string printed(const OutputOptions &options, std::time_t when) {
    using dt::decode::Kind;
    const Outcome outcome = outcome_of([&](std::FILE *out) {
        const auto printer = dtctl::make_printer(options, out);
        printer->start("10.0.0.9", when);
        printer->on_opening({1, {0xA1, 0x02}});
        printer->flush();
        EXPECT_EQ(std::ftell(out), 0); // headings wait for values
        printer->on_selftest({"=a,b"});
        printer->on_value({Kind::int32, 1, 0, 2, 0xFFFFFFFF, "", "'"});
        printer->on_value({Kind::int64, 1, 4294967295, 0, 1ULL << 53, "", "pump"});
        printer->on_value({Kind::string, 3, 0, 0, 0, "\t\"\xC3\xBC\",\nok", std::nullopt});
        printer->on_value({Kind::string, 1, 0, 0, 0, "\x1B\xFC", "p\xFF"});
        printer->on_value({Kind::string, 1, 0, 0, 0, controls, "-p"});
        printer->on_value({Kind::buffer, 1, 0, 0, 0, "ab\0"s, "pump"});
        printer->on_opening({2, {7, 8}});
        printer->end();
    });
    return outcome.output;
}

std::string printed_faults(const OutputOptions &options) {
    using dt::decode::FaultKind, dt::decode::FaultLog;
    const Outcome outcome = outcome_of([&](std::FILE *out) {
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

std::string golden(const std::string &name) {
    std::ifstream file(DT_TESTS "/tools/dtctl/output/golden/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Printers, WriteWhatTheGoldenFilesHold) {
    EXPECT_EQ(printed({}, 0), golden("collection.txt"));
    EXPECT_EQ(printed_faults({}), golden("faults.txt"));
    const OutputOptions json{.format = Format::json, .times = true};
    EXPECT_EQ(printed(json, INT64_MAX), golden("collection.json"));
    EXPECT_EQ(printed_faults(json), golden("faults.json"));
    OutputOptions csv{.format = Format::csv};
    std::string text = golden("collection.csv");
    EXPECT_EQ(printed(csv, 0), text);
    EXPECT_EQ(printed_faults(csv), golden("faults.csv"));
    csv.cells = dtctl::Cells::raw;
    for (const char *guarded : {"'=", "''", "'\t", "'-"}) text.erase(text.find(guarded), 1);
    EXPECT_EQ(printed(csv, 0), text);
    csv.times = true;
    const std::string timed = printed(csv, INT64_MIN), time = "1970-01-01T00:00:00Z,";
    EXPECT_EQ(timed.substr(timed.find(time) + time.size(), 20), text.substr(text.find("10.0"), 20));
    EXPECT_TRUE(timed.starts_with("time,device,"));
}

// Overlong forms, surrogates, cut characters and what lies beyond Unicode are bytes, not text.
TEST(Text, OnlyWellFormedUtf8Passes) {
    for (const std::string text : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xE1\x80\x80",
                                   "\xEC\xBF\xBF", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
                                   "\xF0\x90\x80\x80", "\xF1\x80\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(dtctl::character_length(text + "x"), text.size()) << dtctl::hex(text);
        EXPECT_EQ(dtctl::character_length(text.substr(0, text.size() - 1)), 0u) << dtctl::hex(text);
    }
    for (const char *text :
         {"\x80", "\xC1\xBF", "\xE0\x9F\x80", "\xED\xA0\x80", "\xF0\x8F\x80\x80",
          "\xF4\x90\x80\x80", "\xE1\x80\xC0", "\xE1\x7F\x80", "\xEE\x7F\x80", "\xF1\xC0\x80\x80"})
        EXPECT_EQ(dtctl::character_length(text), 0u) << dtctl::hex(text);
    EXPECT_TRUE(dtctl::is_plain_text("\t\n") && !dtctl::is_plain_text("\r"));
    const std::string shown = "~\u00A0\u061B\u061D\u200D\u2010\u2027\u202F\u2065\u206A";
    EXPECT_EQ(dtctl::escape("\\\t\x7F\u009F\0"s + shown), "\\\\\\t\\x7f\\xc2\\x9f\\x00" + shown);
    EXPECT_EQ(dtctl::escape_json(shown + "\u061C\u200E\u200F\u2028\u202E\u2066\u2069"),
              shown + R"(\u061c\u200e\u200f\u2028\u202e\u2066\u2069)");
}

} // namespace
