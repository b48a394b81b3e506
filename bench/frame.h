// The record that is packed and unpacked: that of an int, and with 100 bytes in the int's place.
#pragma once

#include <stdint.h>
#include <string.h>
#include <string>

namespace bench {

constexpr uint16_t frame_bytes = 100;

struct Frame {
    uint8_t tag = 0x81;
    uint32_t index = 3;
    uint32_t section = 2;
    uint32_t key = 1200;
    uint32_t value = 100000;
    uint16_t length = frame_bytes;
    char bytes[frame_bytes + 1] = "";

    std::string text(bool with_bytes) const {
        std::string all;
        for (const uint32_t number : {uint32_t{tag}, index, section, key})
            all += std::to_string(number) + " ";
        return all + (with_bytes ? std::string(bytes, length) : std::to_string(value));
    }
};

inline Frame sample_frame() {
    Frame frame;
    memset(frame.bytes, 'x', frame_bytes);
    return frame;
}

inline const char *const pack_ints = "pack BIIII";
inline const char *const unpack_ints = "unpack BIIII";
inline const char *const pack_bytes = "pack BIIIH100s";
inline const char *const unpack_bytes = "unpack BIIIH100s";

} // namespace bench
