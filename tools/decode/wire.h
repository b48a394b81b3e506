// The numbers of the collection's wire, each once. All integers are little-endian and unaligned.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace dt::decode::wire {

// Command datagram, server to device: length, command, sequence, port; four bytes each.
inline constexpr size_t command_size = 16;
inline constexpr uint16_t command_port = 9099;
inline constexpr uint32_t selftest_command = 3;

// Message, device to server: length (header included), type, sequence; then the payload.
inline constexpr size_t header_size = 12;
inline constexpr size_t max_message_size = header_size + 1024;
inline constexpr size_t type_offset = 4;

enum MessageType : uint32_t { opening_type = 0, directory_type = 1, data_type = 2 };

// Opening payload: two identity bytes, two bytes of zero.
inline constexpr size_t opening_size = 4;

// Directory entry: index (4), name length (2), the name.
inline constexpr size_t entry_size = 6;
inline constexpr size_t entry_length_offset = 4;

// Value frame: tag (1), index (4), section (4), key (4); then a number, or a size (2) and bytes.
inline constexpr uint8_t kind_mask = 0x7F;
inline constexpr uint8_t complete_flag = 0x80; // clear on a piece that the next frame continues
inline constexpr size_t frame_size = 13;

// The string frame that says whose results follow in a self-test run; section and key are 0.
inline constexpr uint32_t selftest_index = 0xFFFF;

// Four bytes a word.
template <size_t N> std::array<uint8_t, 4 * N> packed(const uint32_t (&words)[N]) {
    std::array<uint8_t, 4 * N> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(words[i / 4] >> (8 * (i % 4)));
    return bytes;
}

} // namespace dt::decode::wire
