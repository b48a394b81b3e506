// The collection decoder, on literal bytes.
#include "decode/decoder.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

using namespace dt::decode;

// Writes down every event.
struct Record : Sink {
    std::ostringstream out;

    void on_opening(const Opening &o) override {
        out << "opening " << o.sequence << ' ' << +o.identity[0] << ' ' << +o.identity[1] << '|';
    }
    void on_directory_entry(const DirectoryEntry &e) override {
        out << "entry " << e.index << ' ' << e.name << '|';
    }
    void on_selftest(const SelfTest &t) override { out << "test " << t.name << '|'; }
    void on_value(const Value &v) override {
        const bool number = v.kind == Kind::int32 || v.kind == Kind::int64;
        out << v.collector.value_or("?") << ' ' << v.index << '/' << v.section << '/' << v.key
            << ' ' << static_cast<int>(v.kind) << ' '
            << (number ? std::to_string(v.number) : v.bytes) << '|';
    }
};

// All events, then the totals (messages, values, bytes), then the break.
std::string story(const std::string &stream, size_t step = SIZE_MAX) {
    Record record;
    Decoder decoder(record);
    const std::span bytes{reinterpret_cast<const uint8_t *>(stream.data()), stream.size()};
    for (size_t at = 0; at < bytes.size(); at += std::min(step, bytes.size() - at))
        decoder.feed(bytes.subspan(at, std::min(step, bytes.size() - at)));
    decoder.finish();
    const Totals &totals = decoder.totals();
    record.out << totals.messages << ' ' << totals.values << ' ' << totals.bytes;
    if (const auto &broken = decoder.broken())
        record.out << "|break " << broken->message << ':' << broken->offset << ' '
                   << broken->reason;
    return record.out.str();
}

// Each stream must break at a place, "message:offset".
void expect_breaks(const std::string &place, const std::vector<std::string> &streams) {
    for (const std::string &stream : streams) {
        const std::string text = story(stream);
        EXPECT_NE(text.find("|break " + place + ' '), text.npos) << place << " in " << text;
    }
}

std::string le16(size_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string le32(size_t v) { return le16(v) + le16(v >> 16); }

std::string message(uint32_t type, const std::string &payload) {
    return le32(12 + payload.size()) + le32(type) + le32(9) + payload;
}

std::string bytes(int tag, uint32_t index, uint32_t section, uint32_t key, const std::string &b) {
    return static_cast<char>(tag) + le32(index) + le32(section) + le32(key) + le16(b.size()) + b;
}

const std::string opening = "\x10\0\0\0\0\0\0\0\x07\0\0\0\x12\x34\0\0"s;
const std::string directory = "\x1C\0\0\0\x01\0\0\0\x01\0\0\0\0\0\0\0\x04\0disk\x05\0\0\0\0\0"s;
const std::string start = opening + directory;
const std::string start_story = "opening 7 18 52|entry 0 disk|entry 5 |";
const std::string end = "\x0C\0\0\0\x02\0\0\0\x63\0\0\0"s;
const std::string an_int = "\x81\0\0\0\0\x02\0\0\0\x03\0\0\0\xFB\xFF\xFF\xFF"s;
const std::string a_long = "\x82\x05\0\0\0\0\0\0\0\x04\0\0\0\0\0\0\0\x01\0\0\0"s;

// With a directory the index of a name frame is just an unknown index.
TEST(Decode, ACollectionRun) {
    const std::string frames = a_long + bytes(0x83, 0, 0, 1, "") +
                               bytes(0x84, 0xFFFF, 0, 0, "b\0c"s) +
                               bytes(0x83, 0xFFFF, 0, 0, "who") + an_int;
    EXPECT_EQ(story(start + message(2, frames) + end),
              start_story + " 5/0/4 2 4294967296|disk 0/0/1 3 |? 65535/0/0 4 b\0c|"s
                            "? 65535/0/0 3 who|disk 0/2/3 1 4294967291|4 5 157");
}

// Without a directory the name frames name, whatever the index of a result; only an exact one does.
TEST(Decode, ASelfTestRun) {
    const std::string stream =
        opening + message(2, an_int) + message(2, bytes(0x83, 0xFFFF, 0, 0, "disk")) +
        message(2, an_int + a_long + bytes(0x83, 0xFFFF, 0, 1, "x") + bytes(0x83, 5, 0, 0, "z")) +
        message(2, bytes(0x84, 0xFFFF, 0, 0, "y") + bytes(0x83, 0xFFFF, 0, 0, "pump")) + end;
    EXPECT_EQ(story(stream),
              "opening 7 18 52|? 0/2/3 1 4294967291|test disk|disk 0/2/3 1 4294967291|"
              "disk 5/0/4 2 4294967296|disk 65535/0/1 3 x|disk 5/0/0 3 z|disk 65535/0/0 4 y|"
              "test pump|6 6 217");
}

TEST(Decode, PiecesAreJoined) {
    std::string text(2500, 'x');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * 7);
    const std::string stream = start + message(2, bytes(0x04, 0, 1, 2, text.substr(0, 1009))) +
                               message(2, bytes(0x04, 0, 1, 2, text.substr(1009, 1009))) +
                               message(2, bytes(0x84, 0, 1, 2, text.substr(2018)) + an_int) + end;
    EXPECT_EQ(story(stream),
              start_story + "disk 0/1/2 4 " + text + "|disk 0/2/3 1 4294967291|6 2 2654");
}

TEST(Decode, TheCutOfTheStreamDoesNotMatter) {
    const std::string piece = message(2, an_int + bytes(0x03, 0, 1, 2, "long "));
    for (const std::string &last : {bytes(0x83, 0, 1, 2, "text") + a_long, an_int + "\x85"s}) {
        const std::string stream = start + piece + message(2, last) + end;
        for (const size_t step : {1U, 2U, 5U, 11U, 13U, 64U})
            EXPECT_EQ(story(stream, step), story(stream));
    }
}

// What was complete before a break has been delivered, and nothing behind it is.
TEST(Decode, ABreakKeepsWhatCameBefore) {
    const std::string frames = an_int + "\x7F"s + an_int;
    EXPECT_EQ(story(start + message(2, frames) + message(2, a_long) + end),
              start_story + "disk 0/2/3 1 4294967291|2 1 91|break 3:29 unknown tag 0x7f");
}

TEST(Decode, BrokenMessages) {
    const std::string disk = le32(0) + le16(4) + "disk";
    expect_breaks("1:0", {le32(11) + le32(0) + le32(0), message(0, "\x12\x34\0"s),
                          message(0, "\x12\x34\0\0\0"s)});
    expect_breaks("3:0",
                  {start + le32(1037) + le32(2) + le32(0), start + le32(~0U) + le32(2) + end});
    expect_breaks("3:12", {start + message(2, std::string(1024, '\x01'))}); // the longest
    expect_breaks("1:4", {directory});
    expect_breaks("3:4", {start + message(3, ""), start + opening, start + directory,
                          opening + end + directory});
    expect_breaks("1:14", {message(0, "\x12\x34\0\x01"s)});
    expect_breaks("2:22",
                  {opening + message(1, disk + "\0\0\0\0\0"s), opening + message(1, disk + disk)});
    expect_breaks("2:26", {opening + message(1, disk + le32(1) + le16(1))});
}

TEST(Decode, BrokenFrames) {
    const auto with = [](const std::string &frame) {
        return start + message(2, an_int + frame) + end;
    };
    const std::string text = bytes(0x83, 0, 0, 0, "abc");
    expect_breaks("3:29", {with("\x80"s), with("\x85"s), with("\x01"s + an_int.substr(1)),
                           with("\x02"s + a_long.substr(1) + an_int), with(an_int.substr(0, 16)),
                           with(a_long.substr(0, 20)), with(text.substr(0, 14))});
    expect_breaks("3:42", {with(text.substr(0, 17)), with(text.substr(0, 13) + "\xFF\xFF")});
}

TEST(Decode, PiecesThatDoNotFollow) {
    for (const std::string &next : {bytes(0x84, 1, 2, 3, "d"), bytes(0x83, 0, 2, 3, "d"),
                                    bytes(0x83, 1, 0, 3, "d"), bytes(0x83, 1, 2, 0, "d"), an_int})
        expect_breaks("4:12",
                      {start + message(2, bytes(0x03, 1, 2, 3, "abc")) + message(2, next) + end});
}

TEST(Decode, StreamsThatStopShort) {
    expect_breaks("1:0", {""});
    expect_breaks("1:5", {opening.substr(0, 5)});
    expect_breaks("3:0", {start});
    expect_breaks("3:20", {start + message(2, an_int).substr(0, 20)});
    expect_breaks("3:29", {start + message(2, an_int + bytes(0x03, 1, 2, 3, "abc")) + end});
    expect_breaks("4:0", {start + message(2, an_int)});
}

} // namespace
