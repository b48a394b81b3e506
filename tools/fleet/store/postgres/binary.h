// PostgreSQL's binary forms of values, as parameters, results and COPY have them.
#pragma once

#include <endian.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace dtfleet::postgres {

// Types by their numbers, which are the same in every database.
enum class Type : unsigned {
    truth = 16,
    bytea = 17,
    int8 = 20,
    int2 = 21,
    int4 = 23,
    text = 25,
    int4_array = 1007,
    text_array = 1009,
    int8_array = 1016,
    bytea_array = 1001,
};

template <typename Number> void put_whole(std::string &out, Number number) {
    out.append(reinterpret_cast<const char *>(&number), sizeof number);
}
inline void put_16(std::string &out, uint16_t number) { put_whole(out, htobe16(number)); }
inline void put_32(std::string &out, uint32_t number) { put_whole(out, htobe32(number)); }
inline void put_64(std::string &out, uint64_t number) { put_whole(out, htobe64(number)); }

constexpr uint32_t null_length = 0xffffffff;

// What stands before the elements of an array of one dimension.
inline void put_array_head(std::string &out, size_t count, Type element, bool has_nulls) {
    put_32(out, count == 0 ? 0 : 1); // dimensions
    put_32(out, has_nulls ? 1 : 0);
    put_32(out, static_cast<uint32_t>(element));
    if (count == 0) return;
    put_32(out, static_cast<uint32_t>(count));
    put_32(out, 1); // the first place
}

// An element with its length before it.
inline void put_sized(std::string &out, std::string_view bytes) {
    put_32(out, static_cast<uint32_t>(bytes.size()));
    out += bytes;
}

// A number of 1, 2, 4 or 8 bytes with a sign.
inline int64_t number_in(std::string_view bytes) {
    uint64_t number = 0;
    for (const char c : bytes) number = number << 8 | static_cast<uint8_t>(c);
    const auto unused = static_cast<unsigned>(64 - 8 * bytes.size());
    return bytes.empty() ? 0 : static_cast<int64_t>(number << unused) >> unused;
}

// Walks an array of one dimension; one that is malformed has no elements.
class ArrayWalk {
public:
    explicit ArrayWalk(std::string_view bytes);
    size_t size() const { return count_; }
    std::optional<std::string_view> next(); // nothing: NULL

private:
    uint32_t take_32();
    std::string_view rest_;
    size_t count_ = 0;
};

} // namespace dtfleet::postgres
