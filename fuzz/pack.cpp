// The pack language: any format over any bytes, sized, packed, extracted and shown.
#include "input.h"

#include "support/platform.h"

#include <array>
#include <dt/records.h>
#include <tuple>

namespace {

constexpr size_t most_fields = 12; // that a call passes
constexpr uint64_t most_bytes = 4096;

// An integer and an address take the same room among variable arguments.
using Arguments = std::array<uintptr_t, most_fields>;

struct Field {
    uint64_t width;
    bool is_text;
};

// What a format means, told a second time.
std::vector<Field> fields_of(const char *format) {
    std::vector<Field> fields;
    for (uint64_t count = 0; *format; ++format) {
        const bool is_digit = *format >= '0' && *format <= '9';
        const uint64_t grown = 10 * count + static_cast<uint64_t>(*format - '0');
        if (strchr("Bb", *format)) fields.push_back({1, false});
        if (strchr("Hh", *format)) fields.push_back({2, false});
        if (strchr("IiT", *format)) fields.push_back({4, false});
        if (strchr("sS", *format)) fields.push_back({count, true});
        count = is_digit ? std::min<uint64_t>(grown, INT32_MAX) : 0;
    }
    return fields;
}

int32_t pack(Bytes &to, const char *format, const Arguments &arguments) {
    const auto call = [&](auto... each) {
        return DTBuffer_PackN(to.data(), static_cast<uint32_t>(to.size()), format, each...);
    };
    return std::apply(call, arguments);
}

int32_t unpack(const char *format, const Bytes &from, const Arguments &arguments) {
    const auto call = [&](auto... each) {
        return DTBuffer_UNPackN(format, from.data(), static_cast<uint32_t>(from.size()), each...);
    };
    return std::apply(call, arguments);
}

// Areas that fields are packed from and extracted to, and the arguments for that.
struct Values {
    Values(const std::vector<Field> &fields, Input input) {
        for (const Field &field : fields) {
            areas.push_back(input.bytes(field.width));
            if (field.is_text) areas.back().push_back(0); // the terminator
        }
        for (size_t i = 0; i < areas.size(); ++i) {
            areas[i].shrink_to_fit();
            targets[i] = sources[i] = reinterpret_cast<uintptr_t>(areas[i].data());
            if (!fields[i].is_text) memcpy(&(sources[i] = 0), areas[i].data(), areas[i].size());
        }
    }

    std::vector<Bytes> areas;
    Arguments sources{}, targets{};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    Bytes format = input.text();
    const std::vector<Field> fields = fields_of(format.text());
    uint64_t needed = 0;
    for (const Field &field : fields) needed += field.width;
    int32_t count = -1;
    const int32_t packed_size = DTBuffer_GetPackSize(format.text(), &count);
    assert(packed_size == static_cast<int32_t>(std::min<uint64_t>(needed, INT32_MAX)));
    assert(count == static_cast<int32_t>(fields.size()));

    const bool extracts = *format.text() != '*';
    if (fields.size() <= most_fields && needed <= most_bytes) {
        Values given(fields, input), taken(fields, {nullptr, 0});
        Bytes packed(needed);
        assert(pack(packed, format.text(), given.sources) == packed_size);
        assert(unpack(format.text(), packed, taken.targets) == count);
        assert(!extracts || taken.areas == given.areas);
    }
    Bytes bytes = input.rest(), before = bytes;
    const bool fits = needed <= bytes.size();
    if (!fits) assert(pack(bytes, format.text(), {}) == -1 && bytes == before);
    const std::string shows = "*" + std::string(format.text());
    assert(unpack(shows.c_str(), bytes, {}) == (fits ? count : -1));
    if (!fits && fields.size() <= most_fields && needed <= most_bytes)
        assert(unpack(format.text(), bytes, Values(fields, input).targets) == -1);
    platform.prints.clear();
    return 0;
}
