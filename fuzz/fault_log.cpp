// The fault log decoder: any file, cut in two ways. A whole file can be made again from its events.
#include "decode/fault_log.h"

#include "printed.h"

#include "dtctl/faults/printer.h"

#include "support/wire.h"
#include "tools/told.h"

using namespace dt::decode;

namespace {

std::string file;

// Writes the file again.
struct Writer : FaultSink {
    using Source = FaultLogDecoder;
    std::ostringstream out;
    std::string logs, values;

    void on_line(const LogLine &line) override {
        assert(line.fault.size() <= max_fault_name);
        const std::string start = (line.log == FaultLog::init ? "log " : "run ") + line.fault + ' ';
        const bool is_short = line.time && line.time->size() == strlen("MM/DD HH:MI:SS");
        if (line.time) logs += counted(start + *line.time + (is_short ? " " : ""));
        if (line.text) logs += counted(start + *line.text);
    }
    void on_fault_value(const FaultValue &value) override {
        assert(value.fault.size() <= max_fault_name);
        const size_t size = number_size(value.kind);
        const auto half_number = [&](int shift) {
            return word(static_cast<uint32_t>(value.number >> shift));
        };
        const std::string number = half_number(0) + half_number(32);
        const uint32_t length = static_cast<uint32_t>(value.data.size());
        values += counted(static_cast<char>(value.fault.size() + 1) +
                          (static_cast<char>(value.kind) + value.fault) + word(value.id) +
                          (size != 0 ? number.substr(0, size) : word(length) + value.data));
    }
    void end(const Source &decoder) {
        out << logs << half(0) << values;
        const auto &damage = decoder.damage();
        assert(damage ? damage->offset <= file.size() : out.str() == file);
        if (damage) out << damage->offset << damage->reason;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const size_t step = 1 + input.number();
    file = input.rest().string();
    assert(told<Writer>(file, step) == told<Writer>(file, SIZE_MAX));
    check_all_forms([&](const auto &options, FILE *out) {
        const auto printer = dtctl::make_fault_printer(options, out);
        FaultLogDecoder decoder(*printer);
        decoder.feed({data + 1, file.size()});
        decoder.finish();
        printer->end("file", decoder.damage() ? &*decoder.damage() : nullptr);
        printer->flush();
    });
    return 0;
}
