// Numbers that stand for bytes: the same for the same ones, in every process and for all time.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace dtfleet {

using Digest = std::array<uint8_t, 16>;

// FNV-1a of 128 bits: enough against chance, not against who wants two that are alike.
class Digester {
public:
    // Bytes one after the other; where one call ends and the next begins makes no difference.
    void add(std::string_view bytes);

    // As 8 bytes, the lowest first.
    void add(uint64_t number);

    Digest digest() const; // the highest byte first

private:
    void add_byte(uint8_t byte);

    uint64_t high_ = 0x6c62272e07bb0142;
    uint64_t low_ = 0x62b821756295c58d;
};

// FNV-1a of 64 bits, where a chance in many is good enough; `before`: of the bytes in front.
constexpr uint64_t hash_of(std::string_view bytes, uint64_t before = 0xcbf29ce484222325) {
    uint64_t hash = before;
    for (const char c : bytes) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001b3;
    return hash;
}

} // namespace dtfleet
