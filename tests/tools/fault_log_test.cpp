// The fault log decoder, on literal bytes.
#include "decode/fault_log.h"

#include "story.h"

#include "support/wire.h"

#include <cstring>

using namespace std::string_literals;

namespace {

using namespace dt::decode;

// What is missing shows as "-".
struct Recorder : FaultSink {
    using Source = FaultLogDecoder;
    std::ostringstream out;

    void on_line(const LogLine &l) override {
        out << (l.log == FaultLog::init ? "init [" : "run [") << l.fault << "] ["
            << l.time.value_or("-") << "] " << l.text.value_or("-") << '|';
    }
    void on_fault_value(const FaultValue &v) override {
        out << static_cast<int>(v.kind) << " [" << v.fault << "] " << v.id << ' ' << v.number << ' '
            << v.data << '|';
    }
    void end(const FaultLogDecoder &decoder) {
        if (decoder.damage()) out << '#' << decoder.damage()->offset;
    }
};

std::string story(const std::string &file) { return story_of<Recorder>(file); }

// The entries of a log section.
std::string log(const std::vector<std::string> &contents) {
    std::string file;
    for (const std::string &content : contents) file += counted(content);
    return file + "\0\0"s;
}

const std::string stamp = "11/16 19:00:10 ";
const std::string longest(22, 'n');
const std::string example = "\x18\0run pump 11/16 19:00:10 \x10\0run pump started\0\0"
                            "\x0E\0\x05\x03pump\x07\0\0\0\x64\0\0\0"s;

// One value of each kind.
const std::string values = "\x0E\0\x05\x00pump\x01\0\0\0\xFF\xFF\xFF\xFF"
                           "\x0E\0\x01\x01\x02\0\0\0\x02\0\0\0\x01\0\0\0"
                           "\x0E\0\x02\x02p\x03\0\0\0\x03\0\0\0a\0c"
                           "\x0C\0\x03\x03 p\x04\0\0\0\0\0\0\x80"
                           "\x0F\0\x02\x04p\x05\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"
                           "\x0B\0\x02\x05p\x06\0\0\0\0\0\0\0"
                           "\x0C\0\x02\x06p\xFF\xFF\xFF\xFF\x01\0\0\0v"s;
const std::string values_story = "0 [pump] 1 4294967295 |1 [] 2 4294967298 |2 [p] 3 0 a\0c|"
                                 "3 [ p] 4 2147483648 |4 [p] 5 9223372036854775807 |5 [p] 6 0 |"
                                 "6 [p] 4294967295 0 v|"s;

} // namespace

TEST(FaultLog, TheLinesAndValuesOfAFile) {
    EXPECT_EQ(story(example + values),
              "run [pump] [11/16 19:00:10] started|3 [pump] 7 100 |" + values_story);
    EXPECT_EQ(story("\0\0"s), "");
}

TEST(FaultLog, NamesWithBlanksAndWithoutBytes) {
    EXPECT_EQ(story(log({"log " + stamp, "log  " + stamp, "log  up and on", "run pump a " + stamp,
                         "run pump a b c", "run pump  " + stamp, "run pump  "})),
              "init [11/16] [-] 19:00:10 |init [] [11/16 19:00:10] up and on|"
              "run [pump a] [11/16 19:00:10] b c|run [pump ] [11/16 19:00:10] |");
}

TEST(FaultLog, NamesHaveAtMost22Bytes) {
    const std::string line = "run " + longest + " x " + stamp;
    EXPECT_EQ(story(log({line, "run " + longest + " 2026/01/02 03:04:05", line})),
              "run [" + longest + "] [-] x " + stamp + "|run [" + longest +
                  "] [2026/01/02 03:04:05] x " + stamp + "|");
}

// What looks like a stamp but is another fault's, of the other log, or not quite one.
TEST(FaultLog, OnlyTheTwoHalvesOfALineArePaired) {
    EXPECT_EQ(story(log({"log a " + stamp, "run a text", "run a " + stamp, "run ab text",
                         "run a 11/16 19-00:10 ", "run a 1:/16 19:00:10 ", "run a x11/16 19:00:10 ",
                         "run b " + stamp, "run b " + stamp, "run b last"})),
              "init [a] [11/16 19:00:10] -|run [a] [-] text|run [a] [11/16 19:00:10] -|"
              "run [ab] [-] text|run [a] [-] 11/16 19-00:10 |run [a] [-] 1:/16 19:00:10 |run [a] "
              "[-] x11/16 19:00:10 |"
              "run [b] [11/16 19:00:10] -|run [b] [11/16 19:00:10] last|");
}

// A full log begins with a text whose stamp was dropped.
TEST(FaultLog, ATextWithoutStampIsNamedByItsNeighbours) {
    EXPECT_EQ(story(log({"run a b left", "run a b " + stamp, "run a b next", "run a b more",
                         "run a c left", "run a " + stamp, "run a next", "run a b last"})),
              "run [a b] [-] left|run [a b] [11/16 19:00:10] next|run [a b] [-] more|"
              "run [a] [-] c left|run [a] [11/16 19:00:10] next|run [a] [-] b last|");
    EXPECT_EQ(story(log({"log a b left", "run a b " + stamp})),
              "init [a] [-] b left|run [a b] [11/16 19:00:10] -|");
}

TEST(FaultLog, DamagedLines) {
    const auto expect = expect_breaks<Recorder>;
    expect("", {log({"run  "}), log({"run " + longest + " "})});
    expect("#0", {counted("run ")});
    expect("#5", {counted("runs a b")});
    expect("#6", {counted("run a"), counted("run n" + longest + " "), counted("run a\0b c"s)});
    expect("#9", {counted("run  ") + counted("sun a b")});
}

TEST(FaultLog, DamagedValues) {
    const auto expect = [](const std::string &place, const std::vector<std::string> &contents) {
        for (const std::string &content : contents)
            expect_breaks<Recorder>(place, {example + counted(content)});
    };
    const std::string number = "\1\0\0\0\2\0\0\0"s;
    expect("", {"\x17\0"s + longest + number});
    expect("#62", {"\0"s + number});
    expect("#64", {"\0\0xx"s + number, "\x18\0n"s + longest + number, "\x0A\0"s + number});
    expect("#65", {"\x01\x07"s + number});
    expect("#66", {"\x03\0p\0"s + number, "\x01\0x"s + number, "\x01\x01"s + number});
    expect("#68", {"\x03\x02pp\1\0\0\0\0\0\0"s});
    expect("#70", {"\x01\x06\1\0\0\0\xFF\xFF\xFF\xFF"s, "\x01\x05\1\0\0\0\1\0\0\0xy"s});
}

// Every cut is noticed at its byte, but for those behind the end mark and between values.
TEST(FaultLog, CutsAnywhere) {
    const std::string file = example + values;
    for (size_t cut = 0; cut < file.size(); ++cut) {
        const bool at_end = std::strchr("\x2E\x3E\x4E\x5E\x6E\x7C\x8D\x9A", static_cast<int>(cut));
        expect_breaks<Recorder>(at_end && cut != 0 ? "" : "#" + std::to_string(cut),
                                {file.substr(0, cut)});
    }
}
