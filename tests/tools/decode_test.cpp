// The collection decoder, on literal bytes.
#include "decode/decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using dt::decode::Decoder;
using dt::decode::Kind;
using dt::decode::Value;

namespace {

// Writes down every event as a line.
struct Record : dt::decode::Sink {
    std::vector<std::string> lines;
    std::vector<Value> values;

    void on_opening(const dt::decode::Opening &o) override {
        lines.push_back("opening " + std::to_string(o.sequence) + " " +
                        std::to_string(o.identity[0]) + " " + std::to_string(o.identity[1]));
    }
    void on_directory_entry(const dt::decode::DirectoryEntry &e) override {
        lines.push_back("entry " + std::to_string(e.index) + " " + e.name);
    }
    void on_selftest(const dt::decode::SelfTest &t) override { lines.push_back("test " + t.name); }
    void on_value(const Value &v) override {
        values.push_back(v);
        const bool number = v.kind == Kind::int32 || v.kind == Kind::int64;
        lines.push_back(v.collector.value_or("?") + " " + std::to_string(v.index) + "/" +
                        std::to_string(v.section) + "/" + std::to_string(v.key) + " " +
                        std::to_string(static_cast<int>(v.kind)) + " " +
                        (number ? std::to_string(v.number) : v.bytes));
    }
};

std::string le16(uint32_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string le32(uint32_t v) { return le16(v) + le16(v >> 16); }

std::string message(uint32_t type, const std::string &payload) {
    return le32(static_cast<uint32_t>(12 + payload.size())) + le32(type) + le32(9) + payload;
}

std::string head(int tag, uint32_t index, uint32_t section, uint32_t key) {
    return static_cast<char>(tag) + le32(index) + le32(section) + le32(key);
}

std::string bytes(int tag, uint32_t index, uint32_t section, uint32_t key, const std::string &b) {
    return head(tag, index, section, key) + le16(static_cast<uint32_t>(b.size())) + b;
}

const std::string opening = "\x10\0\0\0\0\0\0\0\x07\0\0\0\x12\x34\0\0"s;
const std::string directory = "\x1C\0\0\0\x01\0\0\0\x01\0\0\0"
                              "\0\0\0\0\x04\0disk\x05\0\0\0\0\0"s;
const std::string end = "\x0C\0\0\0\x02\0\0\0\x63\0\0\0"s;
const std::string start = opening + directory;
const std::string an_int = "\x81\0\0\0\0\x02\0\0\0\x03\0\0\0\xFB\xFF\xFF\xFF"s;
const std::string a_long = "\x82\x05\0\0\0\0\0\0\0\x04\0\0\0\0\0\0\0\x01\0\0\0"s;

std::span<const uint8_t> view(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// The break of a stream as "message:offset reason"; empty for a whole run.
std::string decode(const std::string &stream, Record &record, size_t step = SIZE_MAX) {
    Decoder decoder(record);
    for (size_t at = 0; at < stream.size(); at += std::min(step, stream.size() - at)) {
        decoder.feed(view(stream).subspan(at, std::min(step, stream.size() - at)));
    }
    decoder.finish();
    if (!decoder.broken()) return "";
    return std::to_string(decoder.broken()->message) + ":" +
           std::to_string(decoder.broken()->offset) + " " + decoder.broken()->reason;
}

// Where a stream breaks, as "message:offset".
std::string place(const std::string &stream) {
    Record record;
    const std::string text = decode(stream, record);
    return text.substr(0, text.find(' '));
}

std::string place_of_frames(const std::string &frames) {
    return place(start + message(2, frames) + end);
}

TEST(Decode, ACollectionRun) {
    Record record;
    const std::string frames = an_int + a_long + bytes(0x83, 0, 0, 1, "") +
                               bytes(0x84, 0xFFFF, 0, 0, "b\0c"s) + bytes(0x83, 9, 0, 0, "who");
    EXPECT_EQ(decode(start + message(2, frames) + end, record), "");
    EXPECT_EQ(record.lines,
              (std::vector<std::string>{"opening 7 18 52", "entry 0 disk", "entry 5 ",
                                        "disk 0/2/3 1 4294967291", " 5/0/4 2 4294967296",
                                        "disk 0/0/1 3 ", "? 65535/0/0 4 b\0c"s, "? 9/0/0 3 who"}));
}

// Without a directory the name frames name, whatever the index of a result; only an exact one does.
TEST(Decode, ASelfTestRun) {
    Record record;
    EXPECT_EQ(
        decode(opening + message(2, an_int) + message(2, bytes(0x83, 0xFFFF, 0, 0, "disk")) +
                   message(2, an_int + a_long + bytes(0x83, 0xFFFF, 0, 1, "x")) +
                   message(2, bytes(0x84, 0xFFFF, 0, 0, "y") + bytes(0x83, 0xFFFF, 0, 0, "pump")) +
                   end,
               record),
        "");
    EXPECT_EQ(record.lines,
              (std::vector<std::string>{"opening 7 18 52", "? 0/2/3 1 4294967291", "test disk",
                                        "disk 0/2/3 1 4294967291", "disk 5/0/4 2 4294967296",
                                        "disk 65535/0/1 3 x", "disk 65535/0/0 4 y", "test pump"}));
}

// In a run with a directory the index of a name frame is just an unknown index.
TEST(Decode, ADirectoryAloneNames) {
    Record record;
    EXPECT_EQ(decode(opening + message(1, "") +
                         message(2, bytes(0x83, 0xFFFF, 0, 0, "disk") + an_int) + end,
                     record),
              "");
    EXPECT_EQ(record.lines.back(), "? 0/2/3 1 4294967291");
    EXPECT_EQ(record.values.size(), 2u);
}

TEST(Decode, PiecesAreJoined) {
    std::string text(2500, 'x');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * 7);
    const std::string stream = start + message(2, bytes(0x04, 0, 1, 2, text.substr(0, 1009))) +
                               message(2, bytes(0x04, 0, 1, 2, text.substr(1009, 1009))) +
                               message(2, bytes(0x84, 0, 1, 2, text.substr(2018)) + an_int) + end;
    Record record;
    EXPECT_EQ(decode(stream, record), "");
    ASSERT_EQ(record.values.size(), 2u);
    EXPECT_EQ(record.values[0].bytes, text);
    EXPECT_EQ(record.values[0].kind, Kind::buffer);
}

TEST(Decode, TheCutOfTheStreamDoesNotMatter) {
    const std::string frames = bytes(0x03, 0, 1, 2, "long ");
    const std::string good = start + message(2, an_int + frames) +
                             message(2, bytes(0x83, 0, 1, 2, "text") + a_long) + end;
    const std::string bad = start + message(2, an_int) + message(2, an_int + "\x85"s) + end;
    for (const std::string &stream : {good, bad}) {
        Record whole;
        const std::string expected = decode(stream, whole);
        for (const size_t step : {1U, 2U, 5U, 11U, 13U, 64U}) {
            Record cut;
            EXPECT_EQ(decode(stream, cut, step), expected);
            EXPECT_EQ(cut.lines, whole.lines);
        }
    }
}

// What was complete before a break has been delivered, and nothing behind it is.
TEST(Decode, ABreakKeepsWhatCameBefore) {
    Record record;
    EXPECT_EQ(
        decode(start + message(2, an_int + "\x7F"s + an_int) + message(2, a_long) + end, record),
        "3:29 unknown tag 0x7f");
    ASSERT_EQ(record.values.size(), 1u);
    EXPECT_EQ(record.values[0].collector, "disk");
}

TEST(Decode, BrokenHeaders) {
    EXPECT_EQ(place(le32(11) + le32(0) + le32(0)), "1:0");
    EXPECT_EQ(place(start + le32(1037) + le32(2) + le32(0)), "3:0");
    EXPECT_EQ(place(start + le32(0xFFFFFFFF) + le32(2) + le32(0)), "3:0");
    EXPECT_EQ(place(start + message(2, std::string(1024, '\x01'))), "3:12"); // the longest
    EXPECT_EQ(place(start + message(3, "")), "3:4");
    EXPECT_EQ(place(directory), "1:4");
    EXPECT_EQ(place(start + opening), "3:4");
    EXPECT_EQ(place(start + directory), "3:4");
    EXPECT_EQ(place(opening + end + directory), "3:4");
}

TEST(Decode, BrokenOpeningsAndDirectories) {
    EXPECT_EQ(place(message(0, "\x12\x34\0"s)), "1:0");
    EXPECT_EQ(place(message(0, "\x12\x34\0\0\0"s)), "1:0");
    EXPECT_EQ(place(message(0, "\x12\x34\0\x01"s)), "1:14");
    const std::string disk = le32(0) + le16(4) + "disk";
    EXPECT_EQ(place(opening + message(1, disk + "\0\0\0\0\0"s)), "2:22");
    EXPECT_EQ(place(opening + message(1, disk + le32(1) + le16(1))), "2:26");
    EXPECT_EQ(place(opening + message(1, disk + disk)), "2:22");
}

TEST(Decode, BrokenFrames) {
    const auto with = [](const std::string &frame) { return place_of_frames(an_int + frame); };
    EXPECT_EQ(with("\x80"s), "3:29");
    EXPECT_EQ(with("\x85"s), "3:29");
    EXPECT_EQ(with(head(0x01, 0, 0, 0) + le32(1)), "3:29");
    EXPECT_EQ(with(head(0x02, 0, 0, 0) + le32(1) + le32(1)), "3:29");
    EXPECT_EQ(with(an_int.substr(0, 16)), "3:29");
    EXPECT_EQ(with(a_long.substr(0, 20)), "3:29");
    EXPECT_EQ(with(bytes(0x83, 0, 0, 0, "").substr(0, 14)), "3:29");
    EXPECT_EQ(with(head(0x83, 0, 0, 0) + le16(3) + "ab"), "3:42");
    EXPECT_EQ(with(head(0x04, 0, 0, 0) + le16(0xFFFF)), "3:42");
}

TEST(Decode, PiecesThatDoNotFollow) {
    const std::string piece = bytes(0x03, 1, 2, 3, "abc");
    const auto then = [&](const std::string &frame) {
        return place(start + message(2, piece) + message(2, frame) + end);
    };
    EXPECT_EQ(then(bytes(0x83, 1, 2, 3, "d")), "");
    EXPECT_EQ(then(bytes(0x84, 1, 2, 3, "d")), "4:12");
    EXPECT_EQ(then(bytes(0x83, 0, 2, 3, "d")), "4:12");
    EXPECT_EQ(then(bytes(0x83, 1, 0, 3, "d")), "4:12");
    EXPECT_EQ(then(bytes(0x83, 1, 2, 0, "d")), "4:12");
    EXPECT_EQ(then(an_int), "4:12");
}

TEST(Decode, StreamsThatStopShort) {
    EXPECT_EQ(place(""), "1:0");
    EXPECT_EQ(place(opening.substr(0, 5)), "1:5");
    EXPECT_EQ(place(start + message(2, an_int).substr(0, 20)), "3:20");
    EXPECT_EQ(place(start), "3:0");
    EXPECT_EQ(place(start + message(2, an_int)), "4:0");
    EXPECT_EQ(place(start + message(2, an_int + bytes(0x03, 1, 2, 3, "abc")) + end), "3:29");
}

TEST(Decode, TotalsCountWhatArrived) {
    Record record;
    Decoder decoder(record);
    EXPECT_TRUE(decoder.feed(view(opening)));
    EXPECT_TRUE(decoder.feed(view(message(2, bytes(0x83, 0xFFFF, 0, 0, "disk") + an_int))));
    EXPECT_TRUE(decoder.feed(view(end).first(3)));
    EXPECT_EQ(decoder.totals().messages, 2u);
    EXPECT_EQ(decoder.totals().values, 1u);
    EXPECT_EQ(decoder.totals().bytes, 16u + 12 + 19 + 17 + 3);
}

} // namespace
