// What a decoder delivers of a stream, as a text.
#pragma once

#include "decode/decoder.h"

#include <algorithm>
#include <span>
#include <sstream>
#include <string>

// A recorder writes down the events in out, and in end() how the stream ended.
template <typename Recorder> std::string told(const std::string &stream, size_t step) {
    Recorder recorder;
    typename Recorder::Source decoder(recorder);
    const std::span bytes{reinterpret_cast<const uint8_t *>(stream.data()), stream.size()};
    for (size_t at = 0; at < bytes.size(); at += std::min(step, bytes.size()))
        decoder.feed(bytes.subspan(at, std::min(step, bytes.size() - at)));
    decoder.finish();
    recorder.end(decoder);
    return recorder.out.str();
}

struct CollectionRecorder : dt::decode::Sink {
    using Source = dt::decode::Decoder;
    std::ostringstream out;

    void on_opening(const dt::decode::Opening &o) override {
        out << "opening " << o.sequence << ' ' << +o.identity[0] << ' ' << +o.identity[1] << '|';
    }
    void on_directory_entry(const dt::decode::DirectoryEntry &e) override {
        out << "entry " << e.index << ' ' << e.name << '|';
    }
    void on_selftest(const dt::decode::SelfTest &t) override { out << "test " << t.name << '|'; }
    void on_value(const dt::decode::Value &v) override {
        using dt::decode::Kind;
        const bool number = v.kind == Kind::int32 || v.kind == Kind::int64;
        out << v.collector.value_or("?") << ' ' << v.index << '/' << v.section << '/' << v.key
            << ' ' << static_cast<int>(v.kind) << ' '
            << (number ? std::to_string(v.number) : v.bytes) << '|';
    }
    void end(const Source &decoder) {
        const auto &totals = decoder.totals();
        out << totals.messages << ' ' << totals.values << ' ' << totals.bytes;
        if (const auto &broken = decoder.broken())
            out << '#' << broken->message << ':' << broken->offset;
    }
};
