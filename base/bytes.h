// Packed records are unaligned and keep the host's byte order: every multi-byte member is moved
// with a byte copy, which the compiler turns into the best access the target allows.
#ifndef DT_BASE_BYTES_H
#define DT_BASE_BYTES_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace dt {

template <typename T> T load(const void *from) {
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

template <typename T> void store(void *to, T value) { memcpy(to, &value, sizeof value); }

// What lies directly behind its header.
template <typename Header> uint8_t *behind(Header *header) {
    return reinterpret_cast<uint8_t *>(header + 1);
}
template <typename Header> const uint8_t *behind(const Header *header) {
    return reinterpret_cast<const uint8_t *>(header + 1);
}

// Writes members one behind the other. The room is the caller's business.
class ByteWriter {
public:
    explicit ByteWriter(void *at) : at_(static_cast<uint8_t *>(at)) {}

    template <typename T> ByteWriter &put(T value) {
        store(at_, value);
        at_ += sizeof value;
        return *this;
    }

    // Null stands for no bytes.
    ByteWriter &put(const void *bytes, size_t count) {
        if (bytes) memcpy(at_, bytes, count);
        at_ += count;
        return *this;
    }

    // As put; up to three bytes, as most keys have, cost no call.
    ByteWriter &put_key(const void *bytes, size_t count) {
        if (count > 3) return put(bytes, count);
        const uint8_t *from = static_cast<const uint8_t *>(bytes);
        if (count > 0) *at_++ = from[0];
        if (count > 1) *at_++ = from[1];
        if (count > 2) *at_++ = from[2];
        return *this;
    }

    // Where the next member goes.
    uint8_t *end() const { return at_; }

private:
    uint8_t *at_;
};

} // namespace dt

#endif
