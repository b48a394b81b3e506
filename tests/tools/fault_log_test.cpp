// The fault log decoder, on literal bytes.
#include "decode/fault_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

using namespace dt::decode;

// Writes down every event; what is missing shows as "-".
struct Record : FaultSink {
    std::ostringstream out;

    void on_line(const LogLine &l) override {
        out << (l.log == FaultLog::init ? "init [" : "run [") << l.fault << "] ["
            << l.time.value_or("-") << "] " << l.text.value_or("-") << '|';
    }
    void on_fault_value(const FaultValue &v) override {
        out << static_cast<int>(v.kind) << " [" << v.fault << "] " << v.id << ' ' << v.number << ' '
            << v.data << '|';
    }
};

// All events, then the damage's place.
std::string story(const std::string &file, size_t step = SIZE_MAX) {
    Record record;
    FaultLogDecoder decoder(record);
    const std::span bytes{reinterpret_cast<const uint8_t *>(file.data()), file.size()};
    for (size_t at = 0; at < bytes.size(); at += std::min(step, bytes.size() - at))
        decoder.feed(bytes.subspan(at, std::min(step, bytes.size() - at)));
    decoder.finish();
    if (decoder.damage()) record.out << '#' << decoder.damage()->offset;
    return record.out.str();
}

// Each file must be damaged at a place, "#offset", or nowhere.
void expect_damage(const std::string &place, const std::vector<std::string> &files) {
    for (const std::string &file : files) {
        const std::string text = story(file);
        EXPECT_EQ(text.substr(std::min(text.size(), text.find('#'))), place) << text;
    }
}

std::string entry(const std::string &content) {
    const size_t size = content.size();
    return std::string{static_cast<char>(size), static_cast<char>(size >> 8)} + content;
}

// The entries of a log section.
std::string log(const std::vector<std::string> &contents) {
    std::string file;
    for (const std::string &content : contents) file += entry(content);
    return file + "\0\0"s;
}

const std::string stamp = "11/16 19:00:10 ";
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

TEST(FaultLog, TheLinesAndValuesOfAFile) {
    EXPECT_EQ(story(example + values),
              "run [pump] [11/16 19:00:10] started|3 [pump] 7 100 |" + values_story);
    EXPECT_EQ(story("\0\0"s), "");
}

TEST(FaultLog, NamesWithBlanksAndWithoutBytes) {
    const std::string longest(22, 'n');
    EXPECT_EQ(story(log({"log " + stamp, "log  " + stamp, "log  up and on", "run pump a " + stamp,
                         "run pump a b c", "run pump  " + stamp, "run pump  "})),
              "init [11/16] [-] 19:00:10 |init [] [11/16 19:00:10] up and on|"
              "run [pump a] [11/16 19:00:10] b c|run [pump ] [11/16 19:00:10] |");
    EXPECT_EQ(story(log({"run " + longest + " " + stamp, "run " + longest + " 2026/01/02 03:04:05",
                         "run " + longest + " x " + stamp})),
              "run [" + longest + "] [11/16 19:00:10] -|run [" + longest +
                  "] [2026/01/02 03:04:05] x " + stamp + "|");
}

// What looks like a stamp but is another fault's, of the other log, or not quite one.
TEST(FaultLog, OnlyTheTwoHalvesOfALineArePaired) {
    EXPECT_EQ(story(log({"log a " + stamp, "run a text", "run a " + stamp, "run ab text",
                         "run a 11/16 19-00:10 ", "run a x11/16 19:00:10 ", "run b " + stamp,
                         "run b " + stamp, "run b last"})),
              "init [a] [11/16 19:00:10] -|run [a] [-] text|run [a] [11/16 19:00:10] -|"
              "run [ab] [-] text|run [a] [-] 11/16 19-00:10 |run [a] [-] x11/16 19:00:10 |"
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

TEST(FaultLog, DamagedEntries) {
    const std::string n22(22, 'n');
    expect_damage("", {log({"run  "}), log({"run " + n22 + " "})});
    expect_damage("#0", {entry("run ")});
    expect_damage("#5", {entry("runs a b")});
    expect_damage("#6", {entry("run a"), entry("run n" + n22 + " "), entry("run a\0b c"s)});
    expect_damage("#9", {entry("run  ") + entry("sun a b")});
    const std::string number = "\1\0\0\0\2\0\0\0"s;
    const auto with = [](const std::string &content) { return example + entry(content); };
    expect_damage("", {with("\x17\0"s + n22 + number)});
    expect_damage("#62", {with("\0"s + number)});
    expect_damage("#64", {with("\0\0xx"s + number), with("\x18\0n"s + n22 + number),
                          with("\x0C\0"s + number)});
    expect_damage("#65", {with("\x01\x07"s + number)});
    expect_damage("#66", {with("\x03\0p\0"s + number), with("\x01\0x"s + number),
                          with("\x01\x01"s + number)});
    expect_damage("#68", {with("\x03\x02pp\1\0\0\0\0\0\0"s)});
    expect_damage("#70",
                  {with("\x01\x06\1\0\0\0\xFF\xFF\xFF\xFF"s), with("\x01\x05\1\0\0\0\1\0\0\0xy"s)});
}

// Every cut is noticed at its byte, but for those between values; all events before it are there.
TEST(FaultLog, CutsAnywhere) {
    const std::string file = example + values;
    const std::vector<size_t> ends = {26, 62, 78, 94, 110, 124, 141, 154, file.size()};
    for (size_t cut = 0, events = 0; cut < file.size(); ++cut) {
        const bool at_end = cut == ends[events];
        events += at_end;
        const std::string text = story(file.substr(0, cut));
        EXPECT_EQ(std::count(text.begin(), text.end(), '|'), events) << cut;
        expect_damage((at_end && cut > 46) || cut == 46 ? "" : "#" + std::to_string(cut),
                      {file.substr(0, cut)});
    }
}

// Whatever the bytes are: an end, and the same for any pieces.
TEST(FaultLog, RandomDamage) {
    std::mt19937 random(4711);
    for (int round = 0; round < 4000; ++round) {
        std::string file = entry("log a b " + stamp) + entry("log a b text") + example + values;
        for (unsigned hits = 1 + random() % 4; hits > 0; --hits)
            file[random() % file.size()] =
                random() % 2 ? static_cast<char>(random()) : "\0 lr\xFF"[random() % 5];
        EXPECT_EQ(story(file, 1 + random() % 9), story(file));
    }
}

// The longest entries are 65,535 bytes; what follows them is found.
TEST(FaultLog, TheLongestEntries) {
    const std::string text(65535 - 9, 't'), data(65535 - 11, 'd');
    const std::string value = "\x02\x06p\1\0\0\0\xF4\xFF\0\0"s + data;
    EXPECT_EQ(story(log({"run pump " + stamp, "run pump " + text}) + entry(value) + values, 7),
              "run [pump] [11/16 19:00:10] " + text + "|6 [p] 1 0 " + data + "|" + values_story);
}

} // namespace
