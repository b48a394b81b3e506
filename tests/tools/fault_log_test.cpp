// The fault log decoder, on literal bytes.
#include "decode/fault_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace std::string_literals;
using dt::decode::FaultLogDecoder;

namespace {

using Lines = std::vector<std::string>;

// Writes down every event as a line; what is missing shows as "-".
struct Record : dt::decode::FaultSink {
    Lines lines;

    void on_line(const dt::decode::LogLine &l) override {
        lines.push_back((l.log == dt::decode::FaultLog::init ? "init [" : "run [") + l.fault +
                        "] [" + l.time.value_or("-") + "] " + l.text.value_or("-"));
    }
    void on_fault_value(const dt::decode::FaultValue &v) override {
        lines.push_back(std::to_string(static_cast<int>(v.kind)) + " [" + v.fault + "] " +
                        std::to_string(v.id) + " " + std::to_string(v.number) + " " + v.data);
    }
};

// The damage of a file as "offset reason"; empty for a whole file.
std::string decode(const std::string &file, Record &record, size_t step = SIZE_MAX) {
    FaultLogDecoder decoder(record);
    const std::span bytes{reinterpret_cast<const uint8_t *>(file.data()), file.size()};
    for (size_t at = 0; at < bytes.size(); at += std::min(step, bytes.size() - at))
        decoder.feed(bytes.subspan(at, std::min(step, bytes.size() - at)));
    decoder.finish();
    if (!decoder.damage()) return "";
    return std::to_string(decoder.damage()->offset) + " " + decoder.damage()->reason;
}

// Where a file is damaged.
std::string place(const std::string &file) {
    Record record;
    const std::string text = decode(file, record);
    return text.substr(0, text.find(' '));
}

std::string sized(const std::string &entry) {
    return {static_cast<char>(entry.size()), static_cast<char>(entry.size() >> 8)};
}

std::string entry(const std::string &content) { return sized(content) + content; }

const std::string end = "\0\0"s;
const std::string stamp = "11/16 19:00:10 ";

// The lines of a log section.
Lines lines_of(const Lines &entries) {
    Record record;
    std::string file;
    for (const std::string &content : entries) file += entry(content);
    EXPECT_EQ(decode(file + end, record), "");
    return record.lines;
}

const std::string example = "\x18\0\x72\x75\x6E\x20\x70\x75\x6D\x70\x20"
                            "\x31\x31\x2F\x31\x36\x20\x31\x39\x3A\x30\x30\x3A\x31\x30\x20"
                            "\x10\0\x72\x75\x6E\x20\x70\x75\x6D\x70\x20\x73\x74\x61\x72\x74\x65\x64"
                            "\0\0"
                            "\x0E\0\x05\x03\x70\x75\x6D\x70\x07\0\0\0\x64\0\0\0"s;

// One value of each kind.
const std::string values = "\x0E\0\x05\x00pump\x01\0\0\0\xFF\xFF\xFF\xFF"
                           "\x0E\0\x01\x01\x02\0\0\0\x02\0\0\0\x01\0\0\0"
                           "\x0E\0\x02\x02p\x03\0\0\0\x03\0\0\0a\0c"
                           "\x0C\0\x03\x03 p\x04\0\0\0\0\0\0\x80"
                           "\x0F\0\x02\x04p\x05\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"
                           "\x0B\0\x02\x05p\x06\0\0\0\0\0\0\0"
                           "\x0C\0\x02\x06p\xFF\xFF\xFF\xFF\x01\0\0\0v"s;

TEST(FaultLog, TheLinesAndValuesOfAFile) {
    ASSERT_EQ(example.size(), 62u);
    Record record;
    EXPECT_EQ(decode(example + values, record), "");
    EXPECT_EQ(
        record.lines,
        (Lines{"run [pump] [11/16 19:00:10] started", "3 [pump] 7 100 ", "0 [pump] 1 4294967295 ",
               "1 [] 2 4294967298 ", "2 [p] 3 0 a\0c"s, "3 [ p] 4 2147483648 ",
               "4 [p] 5 9223372036854775807 ", "5 [p] 6 0 ", "6 [p] 4294967295 0 v"}));
    EXPECT_EQ(decode(end, record), "");
}

TEST(FaultLog, NamesWithBlanksAndWithoutBytes) {
    const std::string longest(22, 'n');
    EXPECT_EQ(lines_of({"log " + stamp, "log  " + stamp, "log  up and on", "run pump a " + stamp,
                        "run pump a b c", "run pump  " + stamp, "run pump  ",
                        "run " + longest + " " + stamp, "run " + longest + " 2026/01/02 03:04:05",
                        "run " + longest + " x " + stamp}),
              (Lines{"init [11/16] [-] 19:00:10 ", "init [] [11/16 19:00:10] up and on",
                     "run [pump a] [11/16 19:00:10] b c", "run [pump ] [11/16 19:00:10] ",
                     "run [" + longest + "] [11/16 19:00:10] -",
                     "run [" + longest + "] [2026/01/02 03:04:05] x " + stamp}));
}

// What looks like a stamp but is another fault's, of the other log, or not quite one.
TEST(FaultLog, OnlyTheTwoHalvesOfALineArePaired) {
    EXPECT_EQ(
        lines_of({"log a " + stamp, "run a text", "run a " + stamp, "run ab text",
                  "run a 11/16 19-00:10 ", "run a x11/16 19:00:10 ", "run b " + stamp,
                  "run b " + stamp, "run b last"}),
        (Lines{"init [a] [11/16 19:00:10] -", "run [a] [-] text", "run [a] [11/16 19:00:10] -",
               "run [ab] [-] text", "run [a] [-] 11/16 19-00:10 ", "run [a] [-] x11/16 19:00:10 ",
               "run [b] [11/16 19:00:10] -", "run [b] [11/16 19:00:10] last"}));
}

// A full log begins with a text whose stamp was dropped.
TEST(FaultLog, ATextWithoutStampIsNamedByItsNeighbours) {
    EXPECT_EQ(lines_of({"run a b left", "run a b " + stamp, "run a b next", "run a b more",
                        "run a c left", "run a " + stamp, "run a next", "run a b last"}),
              (Lines{"run [a b] [-] left", "run [a b] [11/16 19:00:10] next", "run [a b] [-] more",
                     "run [a] [-] c left", "run [a] [11/16 19:00:10] next", "run [a] [-] b last"}));
    EXPECT_EQ(lines_of({"log a b left", "run a b " + stamp}),
              (Lines{"init [a] [-] b left", "run [a b] [11/16 19:00:10] -"}));
}

TEST(FaultLog, DamagedLogEntries) {
    EXPECT_EQ(place(entry("run ")), "0");
    EXPECT_EQ(place(entry("run  ") + entry("sun a b")), "9");
    EXPECT_EQ(place(entry("runs a b")), "5");
    EXPECT_EQ(place(entry("run pump")), "6");
    EXPECT_EQ(place(entry("run " + std::string(22, 'n') + " ") + end), "");
    EXPECT_EQ(place(entry("run " + std::string(23, 'n') + " ") + end), "6");
    EXPECT_EQ(place(entry("run a\0b c"s) + end), "6");
}

TEST(FaultLog, DamagedValues) {
    const auto with = [](const std::string &content) { return place(example + entry(content)); };
    const std::string number = "\1\0\0\0\2\0\0\0"s;
    EXPECT_EQ(place(example + "\x09\0"s), "62");
    EXPECT_EQ(with("\0\0xx"s + number), "64");
    EXPECT_EQ(with("\x18\0"s + std::string(23, 'n') + number), "64");
    EXPECT_EQ(with("\x17\0"s + std::string(22, 'n') + number), "");
    EXPECT_EQ(with("\x0C\0"s + number), "64");
    EXPECT_EQ(with("\x01\x07"s + number), "65");
    EXPECT_EQ(with("\x03\0p\0"s + number), "66");
    EXPECT_EQ(with("\x01\0x"s + number), "66");
    EXPECT_EQ(with("\x01\x01"s + number), "66");
    EXPECT_EQ(with("\x03\x02pp\1\0\0\0\0\0\0"s), "68");
    EXPECT_EQ(with("\x01\x06\1\0\0\0\xFF\xFF\xFF\xFF"s), "70");
    EXPECT_EQ(with("\x01\x05\1\0\0\0\1\0\0\0xy"s), "70");
}

// Every cut is noticed at its byte, but for those between values; all entries before it are there.
TEST(FaultLog, CutsAnywhere) {
    const std::string file = example + values;
    const std::vector<size_t> ends = {26, 44, 46, 62, 78, 94, 110, 124, 141, 154, 168};
    ASSERT_EQ(file.size(), ends.back());
    Record whole;
    decode(file, whole);
    for (size_t cut = 0; cut < file.size(); ++cut) {
        Record record;
        const std::string damage = decode(file.substr(0, cut), record);
        const bool between = cut >= 46 && std::count(ends.begin(), ends.end(), cut) == 1;
        EXPECT_EQ(damage.substr(0, damage.find(' ')), between ? "" : std::to_string(cut));
        const auto entries = std::count_if(ends.begin(), ends.end(),
                                           [cut](size_t entry_end) { return entry_end <= cut; });
        const auto lines = entries <= 1 ? entries : std::max<ptrdiff_t>(1, entries - 2);
        Lines expected(whole.lines.begin(), whole.lines.begin() + lines);
        if (entries == 1) expected = {"run [pump] [11/16 19:00:10] -"};
        EXPECT_EQ(record.lines, expected) << cut;
    }
}

// Whatever the bytes are: an end, no more out than in, and the same for any pieces.
TEST(FaultLog, RandomDamage) {
    std::mt19937 random(4711);
    for (int round = 0; round < 4000; ++round) {
        std::string file = entry("log a b " + stamp) + entry("log a b text") + example + values;
        for (unsigned hits = 1 + random() % 4; hits > 0; --hits) {
            const char byte =
                random() % 2 ? static_cast<char>(random()) : "\0 lr\xFF"[random() % 5];
            file[random() % file.size()] = byte;
        }
        Record whole, pieces;
        const std::string damage = decode(file, whole);
        EXPECT_EQ(decode(file, pieces, 1 + random() % 9), damage);
        EXPECT_EQ(pieces.lines, whole.lines);
        EXPECT_LE(whole.lines.size(), 13u);
        EXPECT_LE(damage.empty() ? 0 : std::stoul(damage), file.size());
    }
}

// The longest entries are 65,535 bytes; what follows them is found.
TEST(FaultLog, TheLongestEntries) {
    const std::string text(65535 - 9, 't');
    const std::string data(65535 - 11, 'd');
    const std::string value = "\x02\x06p\1\0\0\0"s + sized(data) + "\0\0"s + data;
    Record record;
    EXPECT_EQ(
        decode(entry("run pump " + stamp) + entry("run pump " + text) + end + entry(value) + values,
               record, 7),
        "");
    ASSERT_EQ(record.lines.size(), 9u);
    EXPECT_EQ(record.lines[0], "run [pump] [11/16 19:00:10] " + text);
    EXPECT_EQ(record.lines[1], "6 [p] 1 0 " + data);
}

} // namespace
