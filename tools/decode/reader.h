// A view of a message's bytes that only shrinks and knows where in the message it stands.
#pragma once

#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace dt::decode {

// Callers ask left() first: taking more than is left is a mistake of theirs.
class Reader {
public:
    Reader(std::span<const uint8_t> message, size_t offset)
        : rest_(message.subspan(offset)), offset_(offset) {}

    size_t left() const { return rest_.size(); }
    size_t offset() const { return offset_; }

    template <std::unsigned_integral T> T number() {
        const std::span<const uint8_t> bytes = take(sizeof(T));
        uint64_t result = 0;
        for (size_t i = 0; i < sizeof(T); ++i) result |= uint64_t{bytes[i]} << (8 * i);
        return static_cast<T>(result);
    }

    std::string_view bytes(size_t count) {
        const std::span<const uint8_t> bytes = take(count);
        return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    }

private:
    std::span<const uint8_t> take(size_t count) {
        assert(count <= left());
        const std::span<const uint8_t> taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        offset_ += count;
        return taken;
    }

    std::span<const uint8_t> rest_;
    size_t offset_;
};

} // namespace dt::decode
