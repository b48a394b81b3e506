// A stream as a text, and the place where it breaks: behind a "#".
#pragma once

#include "told.h"

#include <gtest/gtest.h>

#include <vector>

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
