#include "support/story.h"

#include <array>
#include <numeric>

namespace {

using Chain = std::array<uint32_t, 4>;
using Input = std::vector<uint8_t>; // exactly as long as the input, so that a read beyond it shows

Chain mixed(const Input &input, Chain chain = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}) {
    EXPECT_EQ(DTMD5_Encode(chain.data(), input.data(), static_cast<uint32_t>(input.size())), 1);
    return chain;
}

Input counting(size_t length) {
    Input input(length);
    std::iota(input.begin(), input.end(), uint8_t{0});
    return input;
}

} // namespace

TEST(Mixing, GivesTheKnownWordsOfTheFirst40Bytes) {
    EXPECT_EQ(mixed(counting(200)), (Chain{0xe96f445e, 0xc2d60222, 0x93f99496, 0x58f34744}));
    // One mixing goes on from what another left. The last word is filled with zeros.
    EXPECT_EQ(mixed({'a', 'b', 'c', 'd', 'e'}),
              (Chain{0x9375611c, 0xb15bc45c, 0x2cfd0922, 0xccac28dc}));
    EXPECT_EQ(mixed({'a', 'b', 'c', 'd'}, mixed(counting(40))),
              (Chain{0xc629ce1a, 0x40085e67, 0x7e0ba992, 0x954e4de8}));
}

// From the initial values on.
TEST(MixingHash, ReducesTheUnsignedSum) {
    const Input key = counting(40);
    EXPECT_EQ(DTMD5_Hash(key.data(), 40, UINT32_MAX), 0x9932225au);
    EXPECT_EQ(DTMD5_Hash(key.data(), 40, 1000), 642u);
    EXPECT_EQ(DTMD5_Hash(key.data(), 40, 0), 0u);
}
