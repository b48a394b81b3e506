// The three output formats, and what they do with awkward bytes.
#include "dtctl/failure.h"
#include "dtctl/printer.h"
#include "dtctl/text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace std::string_literals;
using dt::decode::Kind;
using dt::decode::Value;
using dtctl::escape;
using dtctl::Format;

namespace {

std::string print(Format format, const std::vector<Value> &values) {
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    const auto printer = dtctl::make_printer(format, out);
    printer->on_opening({1, {0xA1, 0x02}});
    printer->on_selftest({"a,b"});
    for (const Value &value : values) printer->on_value(value);
    printer->flush();
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

const std::vector<Value> awkward = {
    {Kind::int32, 1, 0, 2, 0xFFFFFFFF, "", "pump"},
    {Kind::int64, 1, 4294967295, 0, 1ULL << 53, "", "pump"},
    {Kind::string, 3, 0, 0, 0, "say \"hi\",\nok", std::nullopt},
    {Kind::string, 1, 0, 0, 0, "\xC3\xBC\x1B[1m", "p\xFF"},
    {Kind::string, 1, 0, 0, 0, "\xFC", "pump"},
    {Kind::buffer, 1, 0, 0, 0, "ab\0"s, "pump"},
};

TEST(Printers, Table) {
    EXPECT_EQ(print(Format::table, awkward),
              "device identity a102\n\n"
              "collector              section        key  type      value\n"
              "a,b                                        selftest\n"
              "pump                         0          2  int       4294967295 (-1)\n"
              "pump                4294967295          0  long      9007199254740992\n"
              "#3                           0          0  string    say \"hi\",\\nok\n"
              "p\\xff                        0          0  string    \xC3\xBC\\x1b[1m\n"
              "pump                         0          0  string    \\xfc\n"
              "pump                         0          0  buffer    616200\n");
}

TEST(Printers, JsonLines) {
    EXPECT_EQ(print(Format::json, awkward),
              R"({"identity":"a102","collector":"a,b","type":"selftest"}
{"identity":"a102","collector":"pump","index":1,"section":0,"key":2,"type":"int","value":4294967295}
{"identity":"a102","collector":"pump","index":1,"section":4294967295,"key":0,"type":"long","value":"9007199254740992"}
{"identity":"a102","collector":null,"index":3,"section":0,"key":0,"type":"string","text":"say \"hi\",\nok"}
{"identity":"a102","collector_hex":"70ff","index":1,"section":0,"key":0,"type":"string","text":"ü\u001b[1m"}
{"identity":"a102","collector":"pump","index":1,"section":0,"key":0,"type":"string","hex":"fc"}
{"identity":"a102","collector":"pump","index":1,"section":0,"key":0,"type":"buffer","hex":"616200"}
)");
}

TEST(Printers, Csv) {
    EXPECT_EQ(print(Format::csv, awkward),
              "identity,collector,index,section,key,type,encoding,value\n"
              "a102,\"a,b\",,,,selftest,,\n"
              "a102,pump,1,0,2,int,decimal,4294967295\n"
              "a102,pump,1,4294967295,0,long,decimal,9007199254740992\n"
              "a102,,3,0,0,string,text,\"say \"\"hi\"\",\nok\"\n"
              "a102,p\\xff,1,0,0,string,hex,c3bc1b5b316d\n"
              "a102,pump,1,0,0,string,hex,fc\n"
              "a102,pump,1,0,0,buffer,hex,616200\n");
}

TEST(Printers, OutputThatCannotBeWrittenIsAFailure) {
    std::FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    const auto printer = dtctl::make_printer(Format::csv, full);
    printer->on_opening({});
    EXPECT_THROW(printer->flush(), dtctl::Failure);
    std::fclose(full);
}

// Overlong forms, surrogates, cut characters and what lies beyond Unicode are bytes, not text.
TEST(Text, OnlyWellFormedUtf8Passes) {
    for (const std::string text : {"\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEF\xBF\xBF",
                                   "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(dtctl::character_length(text + "x"), text.size()) << dtctl::hex(text);
        EXPECT_FALSE(dtctl::is_utf8(text.substr(0, text.size() - 1))) << dtctl::hex(text);
    }
    for (const std::string text :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\x80", "\xED\xA0\x80", "\xF0\x8F\x80\x80",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE1\x80\xC0", "\xC2x"}) {
        EXPECT_EQ(dtctl::character_length(text), 0u) << dtctl::hex(text);
    }
    EXPECT_EQ(escape("\\\t\x7F\xC2\x9B\xC2\xA0\0"s), "\\\\\\t\\x7f\\xc2\\x9b\xC2\xA0\\x00");
}

} // namespace
