// The messages of a run of one collector with one value, and one with a longer value.
#pragma once

#include <string>

using namespace std::string_literals;

const std::string opening = "\x10\0\0\0\0\0\0\0\x01\0\0\0\xA1\x02\0\0"s;
const std::string directory = "\x16\0\0\0\x01\0\0\0\x02\0\0\0\0\0\0\0\x04\0pump"s;
const std::string data = "\x1D\0\0\0\x02\0\0\0\x03\0\0\0\x81\0\0\0\0\0\0\0\0\x07\0\0\0\x64\0\0\0"s;
const std::string longer =
    "\x21" + data.substr(1, 11) + '\x84' + data.substr(13, 12) + "\6\0abcdef"s;
const std::string end = "\x0C\0\0\0\x02\0\0\0\x04\0\0\0"s;
