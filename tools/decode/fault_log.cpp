#include "decode/fault_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace dt::decode {
namespace {

constexpr size_t length_size = sizeof(uint16_t);
constexpr size_t word_size = 3;
constexpr size_t name_offset = length_size + word_size + 1; // of a log entry
constexpr size_t min_log_entry = word_size + 2;             // behind the length: an empty name
constexpr size_t min_value_entry = 2 + 2 * sizeof(uint32_t);

// 9 stands for any digit.
constexpr std::string_view stamps[] = {"99/99 99:99:99 ", "9999/99/99 99:99:99"};

bool is_like(std::string_view text, std::string_view pattern) {
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                      [](char c, char p) { return p == '9' ? c >= '0' && c <= '9' : c == p; });
}

bool is_stamp(std::string_view text) {
    return std::any_of(std::begin(stamps), std::end(stamps),
                       [&](std::string_view pattern) { return is_like(text, pattern); });
}

bool is_name(std::string_view bytes) {
    return bytes.size() <= max_fault_name && bytes.find('\0') == std::string_view::npos;
}

// The name in front of a blank and a stamp, where the content is just that.
std::optional<std::string> name_before_stamp(std::string_view content) {
    for (const std::string_view pattern : stamps) {
        if (content.size() <= pattern.size()) continue;
        const size_t blank = content.size() - pattern.size() - 1;
        const std::string_view name = content.substr(0, blank);
        if (content[blank] == ' ' && is_like(content.substr(blank + 1), pattern) && is_name(name))
            return std::string(name);
    }
    return std::nullopt;
}

bool begins_with_name(std::string_view content, std::string_view name) {
    return content.starts_with(name) && content.substr(name.size()).starts_with(' ');
}

std::string behind_name(std::string_view content, std::string_view name) {
    return std::string(content.substr(name.size() + 1));
}

std::optional<FaultLog> log_of(std::string_view word) {
    if (word == "log") return FaultLog::init;
    if (word == "run") return FaultLog::run;
    return std::nullopt;
}

} // namespace

size_t number_size(FaultKind kind) {
    switch (kind) {
    case FaultKind::reg:
    case FaultKind::counter:
        return sizeof(uint32_t);
    case FaultKind::reg64:
    case FaultKind::counter64:
        return sizeof(uint64_t);
    default:
        return 0;
    }
}

bool may_be_fault_log(std::string_view head) {
    if (head.size() < fault_log_head) return true;
    if (log_of(head.substr(length_size, word_size))) return head[name_offset - 1] == ' ';
    const auto size = static_cast<uint8_t>(head[2 * length_size]);
    const auto kind = static_cast<uint8_t>(head[2 * length_size + 1]);
    return head[0] == 0 && head[1] == 0 && size >= 1 && size <= 1 + max_fault_name &&
           kind <= static_cast<uint8_t>(FaultKind::value);
}

bool FaultLogDecoder::feed(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && !damage_) bytes = bytes.subspan(take(bytes));
    return !damage_;
}

bool FaultLogDecoder::finish() {
    if (damage_) return false;
    if (!entry_.empty()) {
        return fail(
            entry_.size(),
            fmt::format("the file ends inside the entry that begins at byte {}", entry_at_));
    }
    if (in_log_section_) return fail(0, "the file ends without the log section's end mark");
    return true;
}

bool FaultLogDecoder::fail(size_t offset, std::string reason) {
    release_held();
    damage_ = Damage{entry_at_ + offset, std::move(reason)};
    return false;
}

// Moves bytes into the entry, at most up to the end of what is wanted, and says how many.
size_t FaultLogDecoder::take(std::span<const uint8_t> bytes) {
    const size_t count = std::min(bytes.size(), wanted_ - entry_.size());
    entry_.insert(entry_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    if (entry_.size() < wanted_) return count;
    if (wanted_ == length_size) {
        begin_entry();
    } else {
        const Reader entry{entry_, length_size};
        if (in_log_section_ ? read_log_entry(entry) : read_value_entry(entry)) next_entry();
    }
    return count;
}

bool FaultLogDecoder::begin_entry() {
    const size_t length = Reader{entry_, 0}.number<uint16_t>();
    if (in_log_section_ && length == 0) return end_log_section();
    const size_t least = in_log_section_ ? min_log_entry : min_value_entry;
    if (length < least) {
        return fail(0, fmt::format("a {} entry of {} bytes; {} is the least",
                                   in_log_section_ ? "log" : "value", length, least));
    }
    wanted_ = length_size + length;
    return true;
}

void FaultLogDecoder::next_entry() {
    entry_at_ += entry_.size();
    entry_.clear();
    wanted_ = length_size;
}

bool FaultLogDecoder::end_log_section() {
    release_held();
    in_log_section_ = false;
    next_entry();
    return true;
}

bool FaultLogDecoder::read_log_entry(Reader entry) {
    const auto log = log_of(entry.bytes(word_size));
    if (!log) return fail(length_size, "neither the word log nor the word run");
    if (entry.bytes(1) != " ") return fail(name_offset - 1, "no blank behind the word");
    const std::string_view content = entry.bytes(entry.left());
    const size_t blank = content.find(' ');
    if (blank == content.npos || !is_name(content.substr(0, blank))) {
        return fail(name_offset,
                    fmt::format("no fault's name of at most {} bytes and blank", max_fault_name));
    }
    if (completes_line(*log, content)) {
        const std::string name = std::move(*held_->name);
        const std::string stamp = behind_name(held_->content, name);
        held_.reset();
        deliver({*log, name, stamp, behind_name(content, name)});
        return true;
    }
    Held next{*log, std::string(content), name_before_stamp(content)};
    release_held(&next);
    held_ = std::move(next);
    return true;
}

// Whether an entry is the text of the stamp that is held.
bool FaultLogDecoder::completes_line(FaultLog log, std::string_view content) const {
    if (!held_ || !held_->name || held_->log != log) return false;
    return begins_with_name(content, *held_->name) && !is_stamp(behind_name(content, *held_->name));
}

// Delivers the held entry as a line without its other half.
void FaultLogDecoder::release_held(const Held *next) {
    if (!held_) return;
    const Held held = std::move(*held_);
    held_.reset();
    if (held.name) {
        deliver({held.log, *held.name, behind_name(held.content, *held.name), std::nullopt});
    } else {
        const std::string name = name_of_text(held, next);
        deliver({held.log, name, std::nullopt, behind_name(held.content, name)});
    }
}

std::string FaultLogDecoder::name_of_text(const Held &text, const Held *next) const {
    if (next && next->name && next->log == text.log && begins_with_name(text.content, *next->name))
        return *next->name;
    if (last_fault_ && begins_with_name(text.content, *last_fault_)) return *last_fault_;
    return text.content.substr(0, text.content.find(' '));
}

void FaultLogDecoder::deliver(LogLine line) {
    if (line.time && line.time->ends_with(' ')) line.time->pop_back();
    last_fault_ = line.fault;
    sink_.on_line(line);
}

bool FaultLogDecoder::read_value_entry(Reader entry) {
    const size_t size_at = entry.offset();
    const size_t size = entry.number<uint8_t>(); // kind and name
    if (size < 1 || size > 1 + max_fault_name) {
        return fail(size_at, fmt::format("kind and name of {} bytes, not within 1 to {}", size,
                                         1 + max_fault_name));
    }
    if (size > entry.left()) {
        return fail(size_at, fmt::format("kind and name of {} bytes, {} left", size, entry.left()));
    }
    const size_t kind_at = entry.offset();
    const auto kind = entry.number<uint8_t>();
    if (kind > static_cast<uint8_t>(FaultKind::value))
        return fail(kind_at, fmt::format("unknown kind {}", kind));
    const size_t name_at = entry.offset();
    const std::string_view name = entry.bytes(size - 1);
    if (!is_name(name)) return fail(name_at, "a zero byte in the fault's name");
    return read_value(entry, {FaultKind(kind), std::string(name), 0, 0, {}});
}

bool FaultLogDecoder::read_value(Reader &data, FaultValue value) {
    const size_t at = data.offset();
    const size_t left = data.left();
    const size_t size = number_size(value.kind);
    if (size != 0 ? left != sizeof(uint32_t) + size : left < 2 * sizeof(uint32_t)) {
        return fail(at, fmt::format("{} bytes of data for kind {}", left,
                                    static_cast<unsigned>(value.kind)));
    }
    value.id = data.number<uint32_t>();
    value.number = size == sizeof(uint64_t) ? data.number<uint64_t>() : data.number<uint32_t>();
    if (size == 0) {
        const size_t length = static_cast<size_t>(std::exchange(value.number, 0));
        if (length != data.left()) {
            return fail(at + sizeof(uint32_t),
                        fmt::format("{} bytes of data, {} there", length, data.left()));
        }
        value.data = data.bytes(length);
    }
    sink_.on_fault_value(value);
    return true;
}

} // namespace dt::decode
