// Runs as bytes.
#include "fleet/store/spool.h"

#include <cstring>
#include <type_traits>

namespace dtfleet {
namespace {

// Both go through the fields in one order, which fields() alone knows.
class Packer {
public:
    template <typename Number> void number(const Number &number) {
        static_assert(std::is_arithmetic_v<Number> || std::is_enum_v<Number>);
        bytes_.append(reinterpret_cast<const char *>(&number), sizeof number);
    }
    void text(const std::string &text) {
        number(static_cast<uint32_t>(text.size()));
        bytes_ += text;
    }
    template <typename List, typename Each> void list(const List &list, Each each) {
        number(static_cast<uint32_t>(list.size()));
        for (const auto &element : list) each(element);
    }
    std::string take() { return std::move(bytes_); }

private:
    std::string bytes_;
};

class Unpacker {
public:
    explicit Unpacker(std::string_view bytes) : rest_(bytes) {}
    template <typename Number> void number(Number &number) {
        const std::string_view bytes = take(sizeof number);
        if (good_) std::memcpy(&number, bytes.data(), sizeof number);
    }
    void text(std::string &text) {
        uint32_t size = 0;
        number(size);
        text = take(size);
    }
    template <typename List, typename Each> void list(List &list, Each each) {
        uint32_t size = 0;
        number(size);
        for (uint32_t i = 0; good_ && i < size; ++i) each(list.emplace_back());
    }
    bool is_done() const { return good_ && rest_.empty(); }

private:
    std::string_view take(size_t size) {
        good_ = good_ && size <= rest_.size();
        if (!good_) return {};
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }
    std::string_view rest_;
    bool good_ = true;
};

template <typename Way, typename Run> void fields(Way &way, Run &run) {
    for (auto &byte : run.id) way.number(byte);
    way.text(run.device);
    way.number(run.kind);
    way.number(run.command);
    way.number(run.keeps_all);
    way.number(run.imported);
    way.number(run.outcome);
    way.text(run.reason);
    way.text(run.address);
    way.number(run.time);
    way.number(run.to_connect);
    way.number(run.to_opening);
    way.number(run.to_end);
    way.number(run.resends);
    way.number(run.messages);
    way.number(run.bytes);
    way.number(run.lease.epoch);
    way.number(run.lease.due);
    way.number(run.lease.keeps);
    way.list(run.samples.list, [&way](auto &sample) {
        way.number(sample.number);
        way.number(sample.size);
        way.number(sample.section);
        way.number(sample.key);
        way.number(sample.collector);
        way.number(sample.kind);
    });
    way.text(run.samples.bytes);
    way.list(run.samples.collectors, [&way](auto &name) { way.text(name); });
}

bool is_sound(const Samples &samples) {
    const size_t size = samples.bytes.size();
    for (const Sample &sample : samples.list) {
        if (sample.collector >= samples.collectors.size()) return false;
        const bool has_bytes = !is_number(sample.kind);
        if (has_bytes && (sample.number > size || sample.size > size - sample.number)) return false;
    }
    return true;
}

} // namespace

std::string pack(const RunRecord &run) {
    Packer packer;
    const int32_t identity = run.identity ? *run.identity : -1;
    packer.number(identity);
    fields(packer, run);
    return packer.take();
}

bool unpack(std::string_view bytes, RunRecord &run) {
    Unpacker unpacker(bytes);
    int32_t identity = -1;
    unpacker.number(identity);
    fields(unpacker, run);
    if (identity >= 0) run.identity = static_cast<uint16_t>(identity);
    return unpacker.is_done() && is_sound(run.samples) &&
           static_cast<size_t>(run.outcome) < outcomes;
}

} // namespace dtfleet
