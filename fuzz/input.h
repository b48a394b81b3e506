// What the fuzzers share: their bytes, read from the front.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#ifdef NDEBUG
#error "fuzzers check with assert"
#endif

// An area of exactly its size on the heap, so that any access beyond it is seen.
struct Bytes : std::vector<uint8_t> {
    explicit Bytes(size_t count) : vector(count) { reserve(1); }

    char *text() { return reinterpret_cast<char *>(data()); }
    std::string string() const { return {begin(), end()}; }
};

// Zeros follow when the bytes are used up.
class Input {
public:
    Input(const uint8_t *data, size_t size) : rest_(data, size) {}

    size_t left() const { return rest_.size(); }

    Bytes bytes(size_t count) {
        Bytes result(count);
        const auto read = rest_.first(std::min(count, left()));
        std::copy(read.begin(), read.end(), result.begin());
        rest_ = rest_.subspan(read.size());
        return result;
    }

    Bytes rest() { return bytes(left()); }

    // Up to a zero byte, which is read too; terminated.
    Bytes text() {
        const auto zero = std::find(rest_.begin(), rest_.end(), 0);
        return bytes(static_cast<size_t>(zero - rest_.begin()) + 1);
    }

    template <typename T = uint8_t> T number() {
        T value;
        memcpy(&value, bytes(sizeof value).data(), sizeof value);
        return value;
    }

private:
    std::span<const uint8_t> rest_;
};
