// The collection decoder, on literal bytes.
#include "story.h"

#include "support/wire.h"

using namespace std::string_literals;

namespace {

const auto story = story_of<CollectionRecorder>;
const auto broken = expect_breaks<CollectionRecorder>;

std::string message(uint32_t type, const std::string &payload) {
    return half(12 + payload.size()) + half(0) + word(type) + word(9) + payload;
}

std::string bytes(int tag, uint32_t index, uint32_t section, uint32_t key, const std::string &b) {
    return frame(static_cast<char>(tag), index, section, key, counted(b));
}

const std::string opening = "\x10\0\0\0\0\0\0\0\x07\0\0\0\x12\x34\0\0"s;
const std::string directory = "\x1C\0\0\0\x01\0\0\0\x01\0\0\0\0\0\0\0\x04\0disk\x05\0\0\0\0\0"s;
const std::string start = opening + directory;
const std::string start_story = "opening 7 18 52|entry 0 disk|entry 5 |";
const std::string end = "\x0C\0\0\0\x02\0\0\0\x63\0\0\0"s;
const std::string an_int = "\x81\0\0\0\0\x02\0\0\0\x03\0\0\0\xFB\xFF\xFF\xFF"s;
const std::string a_long = "\x82\x05\0\0\0\0\0\0\0\x04\0\0\0\0\0\0\0\x01\0\0\0"s;

} // namespace

// With a directory the index of a name frame is just an unknown index. Without one the name frames
// name, whatever the index of a result; only an exact one does.
TEST(Decode, ACollectionRunAndASelfTestRun) {
    std::string frames = a_long + bytes(0x83, 0, 0, 1, "") + bytes(0x84, 0xFFFF, 0, 0, "b\0c"s) +
                         bytes(0x83, 0xFFFF, 0, 0, "who") + an_int;
    EXPECT_EQ(story(start + message(2, frames) + end),
              start_story + " 5/0/4 2 4294967296|disk 0/0/1 3 |? 65535/0/0 4 b\0c|"s
                            "? 65535/0/0 3 who|disk 0/2/3 1 4294967291|4 5 157");
    frames = an_int + bytes(0x83, 0xFFFF, 0, 0, "disk") + a_long + bytes(0x83, 0xFFFF, 0, 1, "x") +
             bytes(0x83, 5, 0, 0, "z") + bytes(0x84, 0xFFFF, 0, 0, "y") +
             bytes(0x83, 0xFFFF, 0, 0, "pump");
    EXPECT_EQ(story(opening + message(2, frames) + end),
              "opening 7 18 52|? 0/2/3 1 4294967291|test disk|disk 5/0/4 2 4294967296|"
              "disk 65535/0/1 3 x|disk 5/0/0 3 z|disk 65535/0/0 4 y|test pump|3 5 164");
}

TEST(Decode, PiecesAreJoined) {
    std::string text(2500, 'x');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * 7);
    const std::string stream = start + message(2, bytes(0x04, 0, 1, 2, text.substr(0, 1009))) +
                               message(2, bytes(0x04, 0, 1, 2, text.substr(1009, 1009))) +
                               message(2, bytes(0x84, 0, 1, 2, text.substr(2018)) + an_int) + end;
    EXPECT_EQ(story(stream),
              start_story + "disk 0/1/2 4 " + text + "|disk 0/2/3 1 4294967291|6 2 2654");
    dt::decode::Sink sink;
    for (const size_t limit : {2499U, 2500U}) {
        dt::decode::Decoder decoder(sink, limit);
        for (const char byte : stream) decoder.feed({reinterpret_cast<const uint8_t *>(&byte), 1});
        EXPECT_EQ(decoder.position().message, limit == 2500 ? 7u : 5u);
    }
}

// What was complete before a break has been delivered, and nothing behind it is.
TEST(Decode, BrokenMessages) {
    EXPECT_EQ(story(start + message(2, an_int + "\x7F"s + an_int) + message(2, a_long)),
              start_story + "disk 0/2/3 1 4294967291|2 1 91#3:29");
    const std::string disk = word(0) + counted("disk");
    broken("#1:0", {word(11) + word(0) + word(0), message(0, "\x12\x34\0"s),
                    message(0, "\x12\x34\0\0\0"s)});
    broken("#3:0", {start + word(1037) + word(2) + word(0)});
    broken("#3:12", {start + message(2, std::string(1024, '\x01'))}); // the longest
    broken("#1:4", {directory});
    broken("#3:4",
           {start + message(3, ""), start + opening, start + directory, opening + end + directory});
    broken("#1:14", {message(0, "\x12\x34\0\x01"s)});
    broken("#2:22",
           {opening + message(1, disk + "\0\0\0\0\0"s), opening + message(1, disk + disk)});
    broken("#2:26", {opening + message(1, disk + word(1) + half(1))});
}

TEST(Decode, BrokenFramesAndPiecesThatDoNotFollow) {
    const auto with = [](const std::string &frame) {
        return start + message(2, an_int + frame) + end;
    };
    const std::string text = bytes(0x83, 0, 0, 0, "abc");
    broken("#3:29",
           {with("\x80"s + an_int.substr(1)), with("\x85"s + an_int.substr(1)),
            with("\x01"s + an_int.substr(1)), with("\x02"s + a_long.substr(1) + an_int),
            with(an_int.substr(0, 16)), with(a_long.substr(0, 20)), with(text.substr(0, 14))});
    broken("#3:42", {with(text.substr(0, 17)), with(text.substr(0, 13) + "\xFF\xFF")});
    for (const std::string &next : {bytes(0x84, 1, 2, 3, "d"), bytes(0x83, 0, 2, 3, "d"),
                                    bytes(0x83, 1, 0, 3, "d"), bytes(0x83, 1, 2, 0, "d"), an_int})
        broken("#4:12", {start + message(2, bytes(0x03, 1, 2, 3, "abc")) + message(2, next)});
}

TEST(Decode, StreamsThatStopShort) {
    const std::string first = start + message(2, an_int), piece = bytes(0x03, 1, 2, 3, "abc");
    broken("#1:0", {""});
    broken("#1:5", {opening.substr(0, 5)});
    broken("#3:0", {start});
    broken("#3:20", {first.substr(0, start.size() + 20)});
    broken("#4:0", {first});
    broken("#3:29", {start + message(2, an_int + piece) + end});
}
