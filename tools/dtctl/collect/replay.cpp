#include "dtctl/collect/replay.h"

#include "decode/decoder.h"
#include "dtctl/collect/capture.h"
#include "dtctl/collect/streams.h"
#include "dtctl/output/progress.h"
#include "host/failure.h"
#include "host/socket.h"
#include "host/text.h"

#include <fmt/format.h>

#include <arpa/inet.h>

#include <optional>
#include <utility>

namespace dtctl {
namespace {

std::string dotted(uint32_t address) {
    sockaddr_in socket{};
    socket.sin_addr.s_addr = htonl(address);
    return address_text(socket);
}

class Replay {
public:
    Replay(size_t max_value, Printer &printer) : max_value_(max_value), printer_(printer) {}

    void take(const Collected &collected) {
        ++runs_;
        printer_.start(dotted(collected.flow.source), collected.begun);
        dt::decode::Decoder decoder(printer_, max_value_);
        const std::string &bytes = collected.bytes;
        decoder.feed({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
        if (decoder.finish()) return printer_.end();
        printer_.flush();
        const dt::decode::Break &broken = *decoder.broken();
        complain(fmt::format("run {} in the capture, from {}: message {}, byte {}: {}{}", runs_,
                             dotted(collected.flow.source), broken.message, broken.offset,
                             broken.reason,
                             collected.incomplete ? " (the capture lacks what follows)" : ""));
    }

    void complain(std::string trouble) {
        if (trouble_) Progress(false).note(*trouble_);
        trouble_ = std::move(trouble);
    }

    void end(const std::string &path) {
        if (runs_ == 0 && !trouble_) complain(escape(path) + ": no collection in this capture");
        if (trouble_) throw Failure(Exit::broken, *trouble_);
    }

private:
    size_t max_value_;
    Printer &printer_;
    uint64_t runs_ = 0;
    std::optional<std::string> trouble_; // the last
};

void take_frame(const Frame &frame, Streams &streams) {
    if (!is_known_link(frame.link)) {
        throw Failure(Exit::broken,
                      fmt::format("frames of link type {}, which dtctl does not know", frame.link));
    }
    if (const auto segment = segment_of(frame.link, frame.bytes))
        streams.take(*segment, frame.time);
}

} // namespace

void replay(const std::string &path, size_t max_value, Printer &printer) {
    Replay replay(max_value, printer);
    Streams streams(max_value, [&](const Collected &collected) { replay.take(collected); });
    try {
        read_capture(path, [&](const Frame &frame) { take_frame(frame, streams); });
    } catch (const Failure &failure) {
        if (failure.code() != Exit::broken) throw;
        streams.end();
        replay.complain(failure.what());
    }
    streams.end();
    replay.end(path);
}

} // namespace dtctl
