#include "decode/decoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace dt::decode {
namespace {

const char *name_of_kind(Kind kind) {
    constexpr const char *names[] = {"int", "long", "string", "buffer"};
    return names[static_cast<size_t>(kind) - 1];
}

bool is_number(Kind kind) { return kind == Kind::int32 || kind == Kind::int64; }

// Bytes of a frame before those that its size field counts.
size_t fixed_size(Kind kind) {
    switch (kind) {
    case Kind::int32:
        return wire::frame_size + sizeof(uint32_t);
    case Kind::int64:
        return wire::frame_size + sizeof(uint64_t);
    default:
        return wire::frame_size + sizeof(uint16_t);
    }
}

bool same_value(const Value &a, const Value &b) {
    return a.kind == b.kind && a.index == b.index && a.section == b.section && a.key == b.key;
}

std::string describe(const Value &value) {
    return fmt::format("{} of index {}, section {}, key {}", name_of_kind(value.kind), value.index,
                       value.section, value.key);
}

bool names_tested_collector(const Value &value) {
    return value.kind == Kind::string && value.index == wire::selftest_index &&
           value.section == 0 && value.key == 0;
}

} // namespace

bool Decoder::feed(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && !broken_) bytes = bytes.subspan(take(bytes));
    return !broken_;
}

bool Decoder::finish() {
    if (broken_) return false;
    if (held_ != 0) return fail(held_, "the stream ends inside the message");
    if (open_)
        return fail(open_at_, fmt::format("the last piece of the {} never came", describe(*open_)));
    if (!at_end_) return fail(0, "the stream ends without the empty data message that ends a run");
    return true;
}

bool Decoder::fail(Position where, std::string reason) {
    broken_ = Break{where.message, where.offset, std::move(reason)};
    return false;
}

// Moves bytes into the message, at most up to the end of what is wanted, and says how many.
size_t Decoder::take(std::span<const uint8_t> bytes) {
    const size_t count = std::min(bytes.size(), wanted_ - held_);
    std::copy_n(bytes.begin(), count, message_.begin() + static_cast<std::ptrdiff_t>(held_));
    held_ += count;
    totals_.bytes += count;
    if (held_ == wire::header_size && !check_header()) return count;
    if (held_ == wanted_ && read_payload()) {
        ++totals_.messages;
        held_ = 0;
        wanted_ = wire::header_size;
    }
    return count;
}

bool Decoder::check_header() {
    Reader header{std::span(message_).first(wire::header_size), 0};
    const auto length = header.number<uint32_t>();
    type_ = header.number<uint32_t>();
    sequence_ = header.number<uint32_t>();
    if (length < wire::header_size || length > wire::max_message_size) {
        return fail(0, fmt::format("message length {} is not within {} to {}", length,
                                   wire::header_size, wire::max_message_size));
    }
    wanted_ = length;
    return check_order(type_);
}

bool Decoder::check_order(uint32_t type) {
    const auto refuse = [this](const char *reason) { return fail(wire::type_offset, reason); };
    if (type > wire::data_type) {
        return fail(wire::type_offset, fmt::format("unknown message type {}", type));
    }
    const bool first = totals_.messages == 0;
    if (first && type != wire::opening_type) return refuse("the first message is no opening");
    if (!first && type == wire::opening_type) return refuse("a second opening message");
    if (type == wire::directory_type && totals_.messages != 1) {
        return refuse("a directory that does not follow the opening directly");
    }
    return true;
}

bool Decoder::read_payload() {
    Reader payload{std::span(message_).first(held_), wire::header_size};
    at_end_ = type_ == wire::data_type && payload.left() == 0;
    switch (type_) {
    case wire::opening_type:
        return read_opening(payload);
    case wire::directory_type:
        return read_directory(payload);
    default:
        return read_data(payload);
    }
}

bool Decoder::read_opening(Reader &payload) {
    if (payload.left() != wire::opening_size) {
        return fail(0, fmt::format("an opening of {} payload bytes instead of {}", payload.left(),
                                   wire::opening_size));
    }
    const auto first = payload.number<uint8_t>();
    const auto second = payload.number<uint8_t>();
    const size_t at = payload.offset();
    if (payload.number<uint16_t>() != 0) return fail(at, "the opening's last two bytes are not 0");
    opening_ = Opening{sequence_, {first, second}};
    sink_.on_opening(*opening_);
    return true;
}

bool Decoder::read_directory(Reader &payload) {
    directory_.emplace();
    while (payload.left() != 0) {
        const size_t at = payload.offset();
        if (payload.left() < wire::entry_size) {
            return fail(at, fmt::format("a directory entry of {} bytes or more, {} left",
                                        wire::entry_size, payload.left()));
        }
        const auto index = payload.number<uint32_t>();
        const auto length = payload.number<uint16_t>();
        if (length > payload.left()) {
            return fail(at + wire::entry_length_offset,
                        fmt::format("a name of {} bytes, {} left", length, payload.left()));
        }
        const DirectoryEntry entry{index, std::string(payload.bytes(length))};
        if (!directory_->emplace(entry.index, entry.name).second) {
            return fail(at, fmt::format("index {} is in the directory twice", index));
        }
        sink_.on_directory_entry(entry);
    }
    return true;
}

bool Decoder::read_data(Reader &payload) {
    while (payload.left() != 0) {
        if (!read_frame(payload)) return false;
    }
    return true;
}

bool Decoder::check_tag(uint8_t tag, size_t at) {
    const unsigned kind = tag & wire::kind_mask;
    if (kind < 1 || kind > 4) return fail(at, fmt::format("unknown tag 0x{:02x}", tag));
    if (is_number(Kind(kind)) && !(tag & wire::complete_flag)) {
        return fail(at, fmt::format("tag 0x{:02x}: a number does not come in pieces", tag));
    }
    return true;
}

bool Decoder::read_frame(Reader &payload) {
    const size_t at = payload.offset();
    const size_t left = payload.left();
    const auto tag = payload.number<uint8_t>();
    if (!check_tag(tag, at)) return false;
    Value value;
    value.kind = Kind(tag & wire::kind_mask);
    if (left < fixed_size(value.kind)) {
        return fail(at, fmt::format("a frame of {} bytes or more ({}), {} left",
                                    fixed_size(value.kind), name_of_kind(value.kind), left));
    }
    value.index = payload.number<uint32_t>();
    value.section = payload.number<uint32_t>();
    value.key = payload.number<uint32_t>();
    if (value.kind == Kind::int32) value.number = payload.number<uint32_t>();
    if (value.kind == Kind::int64) value.number = payload.number<uint64_t>();
    if (!is_number(value.kind)) {
        const auto size = payload.number<uint16_t>();
        if (size > payload.left()) {
            return fail(at + wire::frame_size,
                        fmt::format("{} bytes of data, {} left", size, payload.left()));
        }
        value.bytes = payload.bytes(size);
    }
    return accept(std::move(value), (tag & wire::complete_flag) != 0, at);
}

// Joins a frame with the pieces before it and delivers the value when it is complete.
bool Decoder::accept(Value value, bool complete, size_t at) {
    if (open_) {
        if (!same_value(*open_, value)) {
            return fail(at, fmt::format("{} where the next piece of the {} was due",
                                        describe(value), describe(*open_)));
        }
        open_->bytes += value.bytes;
        value = std::move(*open_);
        open_.reset();
    }
    if (value.bytes.size() > max_value_) {
        return fail(at, fmt::format("the {} is longer than {} bytes", describe(value), max_value_));
    }
    if (complete) {
        deliver(std::move(value));
    } else {
        open_ = std::move(value);
        open_at_ = here(at);
    }
    return true;
}

void Decoder::deliver(Value value) {
    if (!directory_ && names_tested_collector(value)) {
        tested_ = std::move(value.bytes);
        sink_.on_selftest({*tested_});
        return;
    }
    value.collector = name_of(value.index);
    ++totals_.values;
    sink_.on_value(value);
}

std::optional<std::string> Decoder::name_of(uint32_t index) const {
    if (!directory_) return tested_;
    const auto entry = directory_->find(index);
    if (entry == directory_->end()) return std::nullopt;
    return entry->second;
}

} // namespace dt::decode
