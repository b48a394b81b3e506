// What a device sends on one connection, up to the limits of a run.
#pragma once

#include "decode/decoder.h"
#include "fleet/inventory/inventory.h"
#include "fleet/store/record.h"

#include <span>

namespace dtfleet {

class Intake final : private dt::decode::Sink {
public:
    explicit Intake(const Limits &limits) : limits_(limits), decoder_(*this, limits.value_bytes) {}
    Intake(const Intake &) = delete;
    Intake &operator=(const Intake &) = delete;

    // Takes what was received. False when the run must end: outcome and reason say why.
    bool feed(std::span<const uint8_t> bytes);

    // The device has closed in order. The outcome is whole, or malformed with its reason.
    void close();

    // Messages that are whole and have not been acknowledged yet; then they have been.
    uint64_t take_unacknowledged();

    const std::optional<dt::decode::Opening> &opening() const { return decoder_.opening(); }
    const dt::decode::Totals &totals() const { return decoder_.totals(); }
    Outcome outcome() const { return outcome_; }
    const std::string &reason() const { return reason_; }
    Samples take_samples() { return std::move(samples_); }

private:
    void on_value(const dt::decode::Value &value) override;
    uint16_t place_of(const dt::decode::Value &value);
    bool has_too_many_series();
    bool refuse(Outcome outcome, std::string reason);

    const Limits &limits_;
    dt::decode::Decoder decoder_;
    Samples samples_;
    size_t next_count_ = 0; // of values, at which the series are counted again
    bool too_many_collectors_ = false;
    uint64_t acknowledged_ = 0;
    Outcome outcome_ = Outcome::malformed;
    std::string reason_;
};

} // namespace dtfleet
