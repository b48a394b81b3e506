#include "dtctl/collect/replay.h"

#include "capture/collections.h"
#include "decode/decoder.h"
#include "dtctl/output/progress.h"
#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace dtctl {
namespace {

class Replay {
public:
    Replay(size_t max_value, Printer &printer) : max_value_(max_value), printer_(printer) {}

    void take(const Collected &collected) {
        ++runs_;
        printer_.start(sender_of(collected), collected.begun / 1'000'000);
        dt::decode::Decoder decoder(printer_, max_value_);
        const std::string &bytes = collected.bytes;
        decoder.feed({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
        if (decoder.finish()) return printer_.end();
        printer_.flush();
        const dt::decode::Break &broken = *decoder.broken();
        complain(fmt::format("run {} in the capture, from {}: message {}, byte {}: {}{}", runs_,
                             sender_of(collected), broken.message, broken.offset, broken.reason,
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

} // namespace

void replay(const std::string &path, size_t max_value, Printer &printer) {
    Replay replay(max_value, printer);
    try {
        read_collections(path, max_value, [&](const Collected &one) { replay.take(one); });
    } catch (const Failure &failure) {
        if (failure.code() != Exit::broken) throw;
        replay.complain(failure.what());
    }
    replay.end(path);
}

} // namespace dtctl
