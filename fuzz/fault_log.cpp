// The fault log decoder: any file, cut in two ways. A whole file can be made again from its events.
#include "decode/fault_log.h"
#include "input.h"

using namespace dt::decode;

namespace {

template <typename T> std::string raw(T value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string entry(const std::string &content) {
    return raw(static_cast<uint16_t>(content.size())) + content;
}

// Writes the file again.
struct Writer : FaultSink {
    std::string logs, values;

    void on_line(const LogLine &line) override {
        assert(line.fault.size() <= max_fault_name);
        const std::string start = (line.log == FaultLog::init ? "log " : "run ") + line.fault + ' ';
        const bool is_short = line.time && line.time->size() == strlen("MM/DD HH:MI:SS");
        if (line.time) logs += entry(start + *line.time + (is_short ? " " : ""));
        if (line.text) logs += entry(start + *line.text);
    }
    void on_fault_value(const FaultValue &value) override {
        assert(value.fault.size() <= max_fault_name);
        const size_t size = number_size(value.kind);
        const uint32_t length = static_cast<uint32_t>(value.data.size());
        const std::string number = raw(value.number).substr(0, size);
        values +=
            entry(raw(static_cast<uint8_t>(value.fault.size() + 1)) + raw(value.kind) +
                  value.fault + raw(value.id) + (size != 0 ? number : raw(length) + value.data));
    }
};

std::string decode(std::span<const uint8_t> file, size_t step) {
    Writer writer;
    FaultLogDecoder decoder(writer);
    feed(decoder, file, step);
    const std::string written = writer.logs + raw(uint16_t{0}) + writer.values;
    if (decoder.finish()) {
        assert(written == std::string(file.begin(), file.end()));
        return written;
    }
    assert(decoder.damage()->offset <= file.size());
    return written + std::to_string(decoder.damage()->offset) + decoder.damage()->reason;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const size_t step = 1 + input.number();
    const Bytes file = input.rest();
    assert(decode(file, step) == decode(file, SIZE_MAX));
    return 0;
}
