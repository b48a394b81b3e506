#include <dt/containers.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <string.h>
#include <vector>

namespace {

using Chain = std::array<uint32_t, 4>;
using Input = std::vector<uint8_t>; // exactly as long as the input, so that a read beyond it shows

Chain mixed(const Input &input, Chain chain) {
    EXPECT_EQ(DTMD5_Encode(chain.data(), input.data(), static_cast<uint32_t>(input.size())), 1);
    return chain;
}

Chain mixed(const Input &input) {
    return mixed(input, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476});
}

Input counting(size_t length) {
    Input input(length);
    std::iota(input.begin(), input.end(), uint8_t{0});
    return input;
}

uint32_t hash(const Input &key, uint32_t modulus) {
    return DTMD5_Hash(key.data(), static_cast<uint32_t>(key.size()), modulus);
}

} // namespace

TEST(Mixing, GivesTheKnownWords) {
    EXPECT_EQ(mixed(counting(40)), (Chain{0xe96f445e, 0xc2d60222, 0x93f99496, 0x58f34744}));
    EXPECT_EQ(mixed({'a', 'b', 'c', 'd'}), (Chain{0xf1f77853, 0x36118a4b, 0x976a7674, 0x3868b21e}));
    EXPECT_EQ(mixed(Input(4)), (Chain{0xa8f5e99c, 0x3ea1b463, 0x93fc8d0f, 0x54e4ff11}));
    // One mixing goes on from what another left.
    EXPECT_EQ(mixed({'a', 'b', 'c', 'd'}, mixed(counting(40))),
              (Chain{0xc629ce1a, 0x40085e67, 0x7e0ba992, 0x954e4de8}));
}

TEST(Mixing, FillsTheLastWordWithZeros) {
    EXPECT_EQ(mixed({'a', 'b', 'c', 'd', 'e'}),
              (Chain{0x9375611c, 0xb15bc45c, 0x2cfd0922, 0xccac28dc}));
    EXPECT_EQ(mixed(Input(39, 0xFF)), (Chain{0x1e12767a, 0xff4cf9b7, 0x181bbcbe, 0x3585cb4b}));
    Chain words = mixed(counting(40)), same = words;
    EXPECT_EQ(DTMD5_Encode(words.data(), "any address", 0), 1);
    EXPECT_EQ(words, mixed(Input(40), same));
}

TEST(Mixing, CountsTheFirst40BytesAlone) {
    EXPECT_EQ(mixed(Input(41, 0xFF)), mixed(Input(40, 0xFF)));
    EXPECT_EQ(mixed(counting(200)), mixed(counting(40)));
    Input other = counting(40);
    other[39] ^= 1;
    EXPECT_NE(mixed(other), mixed(counting(40)));
}

TEST(Mixing, BeginsAtTheInitialValues) {
    DTMD5 context;
    memset(&context, 0xAA, sizeof context);
    DTMD5_Init(&context);
    const uint32_t initial[] = {0, 0, 0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    static_assert(sizeof context == sizeof initial);
    EXPECT_EQ(memcmp(&context, initial, sizeof initial), 0);
    EXPECT_EQ(DTMD5_Encode(context.chain, nullptr, 4), 0);
    EXPECT_EQ(memcmp(&context, initial, sizeof initial), 0);
    EXPECT_EQ(DTMD5_Encode(nullptr, "abcd", 4), 0);
    DTMD5_Init(nullptr);
}

TEST(MixingHash, ReducesTheUnsignedSum) {
    EXPECT_EQ(hash(counting(40), 1000), 642u);
    EXPECT_EQ(hash(counting(40), 16), 10u);
    EXPECT_EQ(hash(counting(40), UINT32_MAX), 0x9932225au);
    EXPECT_EQ(hash({'a', 'b', 'c', 'd'}, 16), 0u);
    EXPECT_EQ(hash(Input(4), 31), 0u);
    EXPECT_EQ(hash(counting(40), 1), 0u);
    EXPECT_EQ(hash(counting(40), 0), 0u);
    EXPECT_EQ(DTMD5_Hash(nullptr, 4, 1000), 0u);
}
