// A stream as a text: what a decoder delivers of it, and the place where it breaks.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <sstream>
#include <string>
#include <vector>

// A recorder writes down the events in out, and in end() how the stream ended: "#" and a place
// where it broke.
template <typename Recorder> std::string told(const std::string &stream, size_t step) {
    Recorder recorder;
    typename Recorder::Source decoder(recorder);
    const std::span bytes{reinterpret_cast<const uint8_t *>(stream.data()), stream.size()};
    for (size_t at = 0; at < bytes.size(); at += step)
        decoder.feed(bytes.subspan(at, std::min(step, bytes.size() - at)));
    decoder.finish();
    recorder.end(decoder);
    return recorder.out.str();
}

// However the stream is cut, its story is the same.
template <typename Recorder> std::string story_of(const std::string &stream) {
    const std::string story = told<Recorder>(stream, stream.size() + 1);
    for (const size_t step : {1U, 5U, 13U}) EXPECT_EQ(told<Recorder>(stream, step), story);
    return story;
}

// Each stream breaks at a place, or, with an empty one, nowhere.
template <typename Recorder>
void expect_breaks(const std::string &place, const std::vector<std::string> &streams) {
    for (const std::string &stream : streams) {
        const std::string story = story_of<Recorder>(stream);
        EXPECT_EQ(story.substr(std::min(story.size(), story.find('#'))), place) << story;
    }
}
