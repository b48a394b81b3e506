// Captures: frames of every kind, and what networks do to segments.
#include "capture/streams.h"

#include "run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using dtctl::Flow;
using dtctl::Segment;

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned fin = 0x11, syn = 0x02, rst = 0x04, ack = 0x10;

const std::string run = opening + directory + data + end;

std::span<const uint8_t> bytes_of(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

std::string big_endian(uint32_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) text += static_cast<char>(number >> (8 * bytes));
    return text;
}

// An IPv4 packet from 10.0.0.9 port 4000 to 10.0.0.1 port 5000.
std::string packet(uint32_t sequence, unsigned flags, const std::string &payload) {
    const auto total = static_cast<uint32_t>(40 + payload.size());
    return "\x45\0"s + big_endian(total, 2) + "\0\0\x40\0\x40\x06\0\0\x0A\0\0\x09\x0A\0\0\x01"s +
           big_endian(4000, 2) + big_endian(5000, 2) + big_endian(sequence, 4) + "\0\0\0\0\x50"s +
           static_cast<char>(flags) + "\xFF\xFF\0\0\0\0"s + payload;
}

const std::string family = "\x02\0\0\0"s, in_order = "\0\0\0\x02"s, type = "\x08\0"s;
const std::string ethernet = std::string(12, '\x02') + type, cooked = std::string(14, '\0') + type;
const std::string tagged = std::string(12, '\x02') + "\x88\xA8\0\x01\x81\0\0\x02"s + type;
const std::string cooked_2 = type + std::string(18, '\0');

TEST(Packet, EveryLinkTypeLeadsToTheSegment) {
    const int links[] = {0, 0, 1, 1, 12, 101, 108, 113, 228, 276};
    const Texts headers = {family, in_order, ethernet, tagged, "",
                           "",     in_order, cooked,   "",     cooked_2};
    for (size_t i = 0; i < headers.size(); ++i) {
        const std::string frame = headers[i] + packet(0xFEDCBA98, fin, "data") + "padding";
        const auto segment = dtctl::segment_of(links[i], bytes_of(frame));
        ASSERT_TRUE(segment && dtctl::is_known_link(links[i])) << i;
        EXPECT_EQ(segment->flow, (Flow{0x0A000009, 0x0A000001, 4000, 5000})) << i;
        EXPECT_TRUE(segment->sequence == 0xFEDCBA98 && segment->ends) << i;
        EXPECT_FALSE(segment->begins || segment->breaks) << i;
        EXPECT_EQ(std::string(segment->payload.begin(), segment->payload.end()), "data") << i;
        for (size_t size = 0; size < headers[i].size() + 40; ++size)
            EXPECT_FALSE(dtctl::segment_of(links[i], bytes_of(frame).first(size))) << i << size;
    }
    EXPECT_TRUE(dtctl::segment_of(101, bytes_of(packet(1, syn | 1, "")))->begins);
    EXPECT_FALSE(dtctl::is_known_link(105));
    // Each byte at its place: IPv6, another version, a header below 20 bytes, more fragments, a
    // later fragment, UDP, an end inside the TCP header, a TCP header below 20 bytes.
    const std::string changes = "\x0C\x86\x0E\x65\x0E\x44\x14\x20\x15\x01\x17\x11\x11\x27\x2E\x40";
    for (size_t i = 0; i < changes.size(); i += 2) {
        std::string frame = ethernet + packet(1, ack, "data");
        frame[static_cast<size_t>(changes[i])] = changes[i + 1];
        EXPECT_FALSE(dtctl::segment_of(1, bytes_of(frame))) << i;
    }
}

struct Piece {
    uint32_t sequence;
    unsigned flags;
    std::string payload;
};

std::vector<int64_t> times; // of the last stream: begun, opened, ended; whether closed, and reset

// The streams that come of some segments, one each microsecond; "..." stands for what is missing.
Texts streams_of(const std::vector<Piece> &pieces) {
    Texts streams;
    dtctl::Streams all(3, [&](const dtctl::Collected &collected) {
        streams.push_back(collected.bytes + (collected.incomplete ? "..." : ""));
        times = {collected.begun, collected.opened, collected.ended, collected.closed,
                 collected.reset};
    });
    int64_t now = 0;
    for (const Piece &piece : pieces) {
        const std::string bytes = packet(piece.sequence, piece.flags, piece.payload);
        all.take(*dtctl::segment_of(101, bytes_of(bytes)), ++now);
    }
    all.end();
    return streams;
}

TEST(Streams, SegmentsRepeatedOverlappingAndOutOfOrder) {
    std::mt19937 random(7);
    const auto below = [&](size_t limit) { return random() % limit; };
    for (int round = 0; round < 300; ++round) {
        const auto first = static_cast<uint32_t>(0U - below(2 * run.size())); // soon wraps
        std::vector<Piece> pieces;
        // Each piece reaches beyond the beginning of the next.
        for (size_t at = 0; at < run.size(); at += 1 + below(40))
            pieces.push_back({first + static_cast<uint32_t>(at), ack, run.substr(at, 40)});
        pieces.push_back({first + static_cast<uint32_t>(run.size()), fin, ""});
        for (size_t i = 0; i < 5; ++i) pieces.insert(pieces.begin(), pieces[below(pieces.size())]);
        std::shuffle(pieces.begin(), pieces.end(), random);
        pieces.insert(pieces.begin(), 2, {first - 1, syn, ""});
        ASSERT_EQ(streams_of(pieces), Texts{run}) << round;
    }
}

TEST(Streams, WhereTheyBeginAndEnd) {
    const uint32_t next = 5 + static_cast<uint32_t>(opening.size());
    const Piece begin = {4, syn, ""}, first = {5, ack, opening};
    EXPECT_EQ(streams_of({first, {next, ack, data}}), Texts{opening + data});
    EXPECT_EQ(streams_of({first, {next + 1, ack, data}}), Texts{opening + "..."});
    EXPECT_EQ(streams_of({first, {next + 4, fin, ""}}), Texts{opening + "..."});
    EXPECT_EQ(streams_of({first, {4, ack, "x"}, {9, rst, ""}, {next, ack, data}}),
              Texts{opening}); // asked whether it is alive; broken off
    EXPECT_EQ(times, (std::vector<int64_t>{1, 1, 3, false, true}));
    EXPECT_EQ(streams_of({begin,
                          {5, ack, opening.substr(0, 7)},
                          {12, ack, opening.substr(7)},
                          {next, fin, data}}),
              Texts{opening + data});
    EXPECT_EQ(times, (std::vector<int64_t>{1, 3, 4, true, false}));
    EXPECT_EQ(streams_of({begin, first, {90, syn, ""}, {91, ack, opening}}),
              (Texts{opening, opening})); // the same ports again
    EXPECT_EQ(streams_of({begin, {5, ack, "GET / HTTP"}, {15, fin, ""}, {5, ack, "GET"}}), Texts{});
    EXPECT_EQ(streams_of({begin, {5, fin, opening.substr(0, 7)}}), Texts{});
    EXPECT_EQ(streams_of({first, {next, ack, longer}, {next + 33, ack, data}}),
              Texts{opening + longer}); // nothing behind a break
}

} // namespace
