#include "containers/DTMD5.h"

#include <string.h>

namespace {

constexpr uint32_t words = DTMD5_COUNTED_BYTES / 4;
constexpr uint32_t steps = 10; // of a round

using Function = uint32_t (*)(uint32_t x, uint32_t y, uint32_t z);

struct Step {
    uint32_t constant;
    uint8_t rotation;
    uint8_t word;
    uint8_t target; // the register that the step changes, 0 (a) to 3 (d)
};

enum Register : uint8_t { a, b, c, d };

// Written so that as little as possible waits for x, the result of the step before: the two halves
// of choose_last have no bit in common.
constexpr uint32_t choose(uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); }
constexpr uint32_t choose_last(uint32_t x, uint32_t y, uint32_t z) { return (x & z) + (y & ~z); }
constexpr uint32_t parity(uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; }
constexpr uint32_t spread(uint32_t x, uint32_t y, uint32_t z) { return y ^ (x | ~z); }

constexpr Step round1[steps] = {
    {0xd76aa478, 7, 0, a}, {0xe8c7b756, 12, 1, d}, {0x242070db, 17, 2, c}, {0xc1bdceee, 22, 3, b},
    {0xf57c0faf, 7, 4, a}, {0x4787c62a, 12, 5, d}, {0xa8304613, 17, 6, c}, {0xfd469501, 22, 7, b},
    {0x698098d8, 7, 8, a}, {0x8b44f7af, 12, 9, d},
};

// The last step is the odd one out: it changes c, with the rotation that c has.
constexpr Step round2[steps] = {
    {0xf61e2562, 5, 1, a}, {0xc040b340, 9, 4, d},  {0x265e5a51, 14, 0, c}, {0xe9b6c7aa, 20, 5, b},
    {0xd62f105d, 5, 7, a}, {0x02441453, 9, 2, d},  {0xd8a1e681, 14, 6, c}, {0xe7d3fbc8, 20, 8, b},
    {0x21e1cde6, 5, 9, a}, {0xc33707d6, 14, 3, c},
};

constexpr Step round3[steps] = {
    {0xfffa3942, 4, 5, a}, {0x8771f681, 11, 6, d}, {0x6d9d6122, 16, 2, c}, {0xfde5380c, 23, 4, b},
    {0xa4beea44, 4, 7, a}, {0x4bdecfa9, 11, 8, d}, {0xf6bb4b60, 16, 1, c}, {0xbebfbc70, 23, 9, b},
    {0x289b7ec6, 4, 0, a}, {0xeaa127fa, 11, 3, d},
};

constexpr Step round4[steps] = {
    {0xf4292244, 6, 9, a}, {0x432aff97, 10, 1, d}, {0xab9423a7, 15, 4, c}, {0xfc93a039, 21, 5, b},
    {0x655b59c3, 6, 2, a}, {0x8f0ccc92, 10, 3, d}, {0xffeff47d, 15, 0, c}, {0x85845dd1, 21, 6, b},
    {0x6fa87e4f, 6, 8, a}, {0xfe2ce6e0, 10, 7, d},
};

constexpr uint32_t rotated(uint32_t value, uint32_t by) { return value << by | value >> (32 - by); }

// Unrolled, so that the registers are registers and the table is part of the instructions.
template <Function mix, const Step (&round)[steps]>
inline void run(uint32_t (&r)[4], const uint32_t (&x)[words]) {
#pragma GCC unroll 10
    for (const Step &step : round) {
        const uint32_t t = step.target;
        const uint32_t before = r[(t + 1) % 4];
        const uint32_t mixed = mix(before, r[(t + 2) % 4], r[(t + 3) % 4]);
        r[t] = before + rotated(r[t] + mixed + x[step.word] + step.constant, step.rotation);
    }
}

// The input as little-endian words, zeros behind it.
void load_words(uint32_t (&x)[words], const void *input, uint32_t length) {
    memset(x, 0, sizeof x);
    memcpy(x, input, length < sizeof x ? length : sizeof x);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    for (uint32_t &word : x) word = __builtin_bswap32(word);
#endif
}

} // namespace

void DTMD5_Init(DTMD5 *context) {
    if (context) *context = {{0, 0}, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}};
}

int DTMD5_Encode(uint32_t chain[4], const void *input, uint32_t length) {
    if (!chain || !input) return 0;
    uint32_t x[words];
    load_words(x, input, length);
    uint32_t r[4] = {chain[a], chain[b], chain[c], chain[d]};
    run<choose, round1>(r, x);
    run<choose_last, round2>(r, x);
    run<parity, round3>(r, x);
    run<spread, round4>(r, x);
    for (int i = 0; i < 4; ++i) chain[i] += r[i];
    return 1;
}

uint32_t DTMD5_Hash(const void *key, uint32_t length, uint32_t modulus) {
    DTMD5 context;
    DTMD5_Init(&context);
    if (modulus == 0 || !DTMD5_Encode(context.chain, key, length)) return 0;
    const uint32_t(&chain)[4] = context.chain;
    return (chain[a] + chain[b] + chain[c] + chain[d]) % modulus;
}
