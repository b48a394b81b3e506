// Bytes as they are in messages, datagrams and files.
#pragma once

#include <stdint.h>
#include <string>

inline std::string word(uint32_t value) { return {reinterpret_cast<char *>(&value), 4}; }
inline std::string half(size_t value) { return word(static_cast<uint32_t>(value)).substr(0, 2); }

// Bytes behind their length.
inline std::string counted(const std::string &bytes) { return half(bytes.size()) + bytes; }

// A value of a collection, with a tag that says its kind.
inline std::string frame(char tag, uint32_t index, uint32_t section, uint32_t key,
                         const std::string &value) {
    return tag + word(index) + word(section) + word(key) + value;
}
