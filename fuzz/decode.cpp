// The collection decoder: any stream, cut in two ways.
#include "decode/decoder.h"
#include "input.h"

using namespace dt::decode;

namespace {

// Keeps every event as text.
struct Record : Sink {
    std::string all;

    void on_opening(const Opening &o) override { all += std::to_string(o.sequence); }
    void on_directory_entry(const DirectoryEntry &e) override {
        all += '\n' + std::to_string(e.index) + e.name;
    }
    void on_selftest(const SelfTest &test) override { all += "\ntest " + test.name; }
    void on_value(const Value &v) override {
        all += '\n' + std::to_string(v.index) + v.collector.value_or("?") +
               std::to_string(v.number) + v.bytes;
    }
};

std::string decode(std::span<const uint8_t> stream, size_t step) {
    Record record;
    Decoder decoder(record);
    feed(decoder, stream, step);
    const auto &[messages, values, bytes] = decoder.totals();
    if (decoder.finish()) {
        assert(!decoder.broken() && bytes == stream.size());
        return record.all;
    }
    const Break &broken = *decoder.broken();
    assert(bytes <= stream.size() && values <= bytes / wire::frame_size);
    assert(broken.message <= messages + 1 && broken.offset <= wire::max_message_size);
    return record.all + std::to_string(broken.offset) + broken.reason;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const size_t step = 1 + input.number();
    const Bytes stream = input.rest();
    assert(decode(stream, step) == decode(stream, SIZE_MAX));
    return 0;
}
