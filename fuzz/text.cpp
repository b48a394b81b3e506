// Hex dumps, splitting, and times as text.
#include "input.h"

#include <dt/foundation.h>

namespace {

void dump(Input input) {
    Bytes out(1 + input.number());
    const Bytes bytes = input.rest();
    DTString_HFormatN(out.text(), out.size(), bytes.data(), static_cast<int32_t>(bytes.size()));
    std::string expected;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char text[5];
        snprintf(text, sizeof text, "%s%02X ", i != 0 && i % 16 == 0 ? "\n" : "", bytes[i]);
        if (expected.size() + strlen(text) >= out.size()) break;
        expected += text;
    }
    assert(out.text() == expected);
}

// The pieces, joined again, are the text.
void split(Input input) {
    const size_t max = input.number() % 8;
    Bytes separator = input.text(), text = input.text();
    const std::string before = text.text();
    std::vector<char *> pieces(max != 0 ? max : text.size());
    const int32_t count =
        DTString_Split(text.text(), separator.text(), pieces.data(), static_cast<int32_t>(max));
    std::string joined = pieces[0];
    for (size_t i = 1; i < static_cast<size_t>(count); ++i)
        joined += std::string(separator.text()) + pieces.at(i);
    assert(joined == before);
}

void format_time(Input input) {
    const int64_t time = input.number<int64_t>() >> input.number() % 64;
    Bytes pattern = input.text();
    const size_t more = time == static_cast<int32_t>(time) ? 0 : 7; // for a long year
    Bytes out(pattern.size() + pattern.size() / 4 * more);
    DTTime_Format(out.text(), pattern.text(), time);
    assert(strlen(out.text()) < out.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const Input input(data, size);
    dump(input);
    split(input);
    format_time(input);
    return 0;
}
