#include "fleet/engine/tokens.h"

#include <sys/random.h>

#include <bit>
#include <cerrno>
#include <system_error>
#include <utility>

namespace dtfleet {
namespace {

// SipHash-2-4 of one word.
uint64_t keyed_hash(const std::array<uint64_t, 2> &key, uint64_t word) {
    uint64_t v0 = key[0] ^ 0x736f6d6570736575, v1 = key[1] ^ 0x646f72616e646f6d;
    uint64_t v2 = key[0] ^ 0x6c7967656e657261, v3 = key[1] ^ 0x7465646279746573;
    const auto mix = [&](int rounds) {
        for (; rounds > 0; --rounds) {
            v0 += v1, v1 = std::rotl(v1, 13) ^ v0, v0 = std::rotl(v0, 32);
            v2 += v3, v3 = std::rotl(v3, 16) ^ v2;
            v0 += v3, v3 = std::rotl(v3, 21) ^ v0;
            v2 += v1, v1 = std::rotl(v1, 17) ^ v2, v2 = std::rotl(v2, 32);
        }
    };
    const auto take = [&](uint64_t input) {
        v3 ^= input;
        mix(2);
        v0 ^= input;
    };
    take(word);
    take(uint64_t{8} << 56);
    v2 ^= 0xff;
    mix(4);
    return v0 ^ v1 ^ v2 ^ v3;
}

} // namespace

Tokens::Tokens() {
    const auto count = static_cast<ssize_t>(sizeof secret_);
    if (::getrandom(secret_.data(), sizeof secret_, 0) != count)
        throw std::system_error(errno, std::generic_category(), "random bytes");
}

// A permutation of all 32-bit numbers, so that none comes twice: four turns, each of which changes
// one half by the other.
uint32_t Tokens::shuffled(uint32_t number) const {
    uint32_t left = number >> 16, right = number & 0xFFFF;
    for (uint64_t turn = 0; turn < 4; ++turn) {
        const auto change = static_cast<uint16_t>(keyed_hash(secret_, turn << 32 | right));
        left = std::exchange(right, left ^ change);
    }
    return left << 16 | right;
}

uint32_t Tokens::draw() {
    uint32_t token;
    do token = shuffled(count_++);
    while (token < least || token > most);
    return token;
}

} // namespace dtfleet
