// The fault log decoder, on literal bytes.
#include "decode/fault_log.h"

#include "story.h"

#include "support/wire.h"

#include <cstring>

using namespace std::string_literals;

namespace {

using namespace dt::decode;

const std::string stamp = "11/16 19:00:10 ", longest(22, 'n');

// What is missing shows as "-", the usual stamp as "@".
struct Recorder : FaultSink {
    using Source = FaultLogDecoder;
    std::ostringstream out;

    void on_line(const LogLine &l) override {
        const std::string time = l.time.value_or("-");
        out << (l.log == FaultLog::init ? "init [" : "run [") << l.fault << "] ["
            << (time + ' ' == stamp ? "@" : time) << "] " << l.text.value_or("-") << '|';
    }
    void on_fault_value(const FaultValue &v) override {
        out << static_cast<int>(v.kind) << " [" << v.fault << "] " << v.id << ' ' << v.number << ' '
            << v.data << '|';
    }
    void end(const FaultLogDecoder &decoder) {
        if (decoder.damage()) out << '#' << decoder.damage()->offset;
    }
};

const auto story = story_of<Recorder>;
const auto damaged = expect_breaks<Recorder>;

// The entries of a log section.
std::string log(const std::vector<std::string> &contents) {
    std::string file;
    for (const std::string &content : contents) file += counted(content);
    return file + "\0\0"s;
}

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
    EXPECT_EQ(story(example + values), "run [pump] [@] started|3 [pump] 7 100 |" + values_story);
    EXPECT_EQ(story("\0\0"s), "");
    // Names with blanks, without bytes, and with the most that they have.
    const std::string line = "run " + longest + " x " + stamp, year = "2026/01/02 03:04:05";
    EXPECT_EQ(story(log({"log " + stamp, "log  " + stamp, "log  up and on", "run pump a " + stamp,
                         "run pump a b c", "run pump  " + stamp, "run pump  ", line,
                         "run " + longest + ' ' + year, line})),
              "init [11/16] [-] 19:00:10 |init [] [@] up and on|run [pump a] [@] b c|"
              "run [pump ] [@] |run [" +
                  longest + "] [-] x " + stamp + "|run [" + longest + "] [" + year + "] x " +
                  stamp + '|');
}

TEST(FaultLog, OnlyTheTwoHalvesOfALineArePaired) {
    // What looks like a stamp but is another fault's, of the other log, or not quite one.
    EXPECT_EQ(story(log({"log a " + stamp, "run a text", "run a " + stamp, "run ab text",
                         "run a 11/16 19-00:10 ", "run a 1:/16 19:00:10 ", "run a x11/16 19:00:10 ",
                         "run b " + stamp, "run b " + stamp, "run b last"})),
              "init [a] [@] -|run [a] [-] text|run [a] [@] -|run [ab] [-] text|"
              "run [a] [-] 11/16 19-00:10 |run [a] [-] 1:/16 19:00:10 |"
              "run [a] [-] x11/16 19:00:10 |run [b] [@] -|run [b] [@] last|");
    // A full log begins with a text whose stamp was dropped: its neighbours tell the name.
    EXPECT_EQ(story(log({"run a b left", "run a b " + stamp, "run a b next", "run a b more",
                         "run a c left", "run a " + stamp, "run a next", "run a b last"})),
              "run [a b] [-] left|run [a b] [@] next|run [a b] [-] more|run [a] [-] c left|"
              "run [a] [@] next|run [a] [-] b last|");
    EXPECT_EQ(story(log({"log a b left", "run a b " + stamp})),
              "init [a] [-] b left|run [a b] [@] -|");
}

TEST(FaultLog, DamagedLinesAndValues) {
    damaged("", {log({"run  "}), log({"run " + longest + " "})});
    damaged("#0", {counted("run ")});
    damaged("#5", {counted("runs a b")});
    damaged("#6", {counted("run a"), counted("run n" + longest + " "), counted("run a\0b c"s)});
    damaged("#9", {counted("run  ") + counted("sun a b")});
    const auto value = [](const std::string &content) { return example + counted(content); };
    const std::string number = "\1\0\0\0\2\0\0\0"s;
    damaged("", {value("\x17\0"s + longest + number)});
    damaged("#62", {value("\0"s + number)});
    damaged("#64", {value("\0\0xx"s + number), value("\x18\0n"s + longest + number),
                    value("\x0A\0"s + number)});
    damaged("#65", {value("\x01\x07"s + number)});
    damaged("#66", {value("\x03\0p\0"s + number), value("\x01\0x"s + number),
                    value("\x01\x01"s + number)});
    damaged("#68", {value("\x03\x02pp\1\0\0\0\0\0\0"s)});
    damaged("#70",
            {value("\x01\x06\1\0\0\0\xFF\xFF\xFF\xFF"s), value("\x01\x05\1\0\0\0\1\0\0\0xy"s)});
}

// Every cut is noticed at its byte, but for those behind the end mark and between values.
TEST(FaultLog, CutsAnywhere) {
    const std::string file = example + values;
    for (size_t cut = 0; cut < file.size(); ++cut) {
        const bool at_end = std::strchr("\x2E\x3E\x4E\x5E\x6E\x7C\x8D\x9A", static_cast<int>(cut));
        damaged(at_end && cut != 0 ? "" : "#" + std::to_string(cut), {file.substr(0, cut)});
    }
}
