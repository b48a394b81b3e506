#include "fleet/store/digest.h"

namespace dtfleet {

void Digester::add(std::string_view bytes) {
    for (const char c : bytes) add_byte(static_cast<uint8_t>(c));
}

void Digester::add(uint64_t number) {
    for (unsigned shift = 0; shift < 64; shift += 8)
        add_byte(static_cast<uint8_t>(number >> shift));
}

// Multiplies by the prime 2^88 + 0x13b.
void Digester::add_byte(uint8_t byte) {
    constexpr uint64_t prime = 0x13b;
    low_ ^= byte;
    const uint64_t lower = (low_ & 0xffffffff) * prime;
    const uint64_t upper = (low_ >> 32) * prime + (lower >> 32);
    high_ = high_ * prime + (upper >> 32) + (low_ << 24);
    low_ *= prime;
}

Digest Digester::digest() const {
    Digest digest;
    for (unsigned i = 0; i < 8; ++i) {
        digest[i] = static_cast<uint8_t>(high_ >> (56 - 8 * i));
        digest[8 + i] = static_cast<uint8_t>(low_ >> (56 - 8 * i));
    }
    return digest;
}

} // namespace dtfleet
