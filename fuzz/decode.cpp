// The collection decoder: any stream, cut in two ways, and printed.
#include "printed.h"

#include "dtctl/output/printer.h"
#include "tools/told.h"

namespace {

size_t stream_size;

struct Recorder : CollectionRecorder {
    void end(const Source &decoder) {
        const auto &[messages, values, bytes] = decoder.totals();
        const auto &broken = decoder.broken();
        assert(broken ? bytes <= stream_size : bytes == stream_size);
        assert(values <= bytes / dt::decode::wire::frame_size);
        assert(!broken || broken->message <= messages + 1);
        assert(!broken || broken->offset <= dt::decode::wire::max_message_size);
        CollectionRecorder::end(decoder);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const size_t step = 1 + input.number();
    const std::string stream = input.rest().string();
    stream_size = stream.size();
    assert(told<Recorder>(stream, step) == told<Recorder>(stream, SIZE_MAX));
    check_all_forms([&](const auto &options, FILE *out) {
        const auto printer = dtctl::make_printer(options, out);
        printer->start("10.1.1.1", 0);
        dt::decode::Decoder(*printer).feed({data + 1, stream_size});
        printer->end();
    });
    return 0;
}
