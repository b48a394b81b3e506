// The numbers that commands carry and openings bring back. They are the only proof of where a run
// belongs, so nobody may guess the next one.
#pragma once

#include <array>
#include <cstdint>

namespace dtfleet {

class Tokens {
public:
    static constexpr uint32_t least = uint32_t{1} << 24; // above what devices count by themselves
    static constexpr uint32_t most = (uint32_t{1} << 31) - 1;

    // With a secret of its own. Throws std::system_error when the system has no random bytes.
    Tokens();
    explicit Tokens(const std::array<uint64_t, 2> &secret) : secret_(secret) {}

    // From least to most; each once before any comes again, which takes two thousand million draws.
    uint32_t draw();

private:
    uint32_t shuffled(uint32_t number) const;

    std::array<uint64_t, 2> secret_{};
    uint32_t count_ = 0;
};

} // namespace dtfleet
