#include "fleet/store/state.h"

namespace dtfleet {
namespace {

// Bits of the byte that begins an entry; its lowest two are the form.
constexpr unsigned form_bits = 3;
constexpr unsigned has_ordinal = 4;
constexpr unsigned has_time = 8; // it is not the state's
constexpr unsigned has_sum = 16;
constexpr unsigned has_last = 32; // of the sum: it is not the entry's number
constexpr unsigned known_bits = 63;

// Small differences to both sides as small numbers.
constexpr uint64_t folded(uint64_t difference) {
    return (difference << 1) ^ (0 - (difference >> 63));
}
constexpr uint64_t unfolded(uint64_t number) { return (number >> 1) ^ (0 - (number & 1)); }

void put(std::string &out, uint64_t number) {
    for (; number >= 0x80; number >>= 7) out += static_cast<char>(number | 0x80);
    out += static_cast<char>(number);
}

void put_difference(std::string &out, uint64_t number, uint64_t base) {
    put(out, folded(number - base));
}

// Takes from the front; once something was missing, everything is.
class Source {
public:
    explicit Source(std::string_view bytes) : bytes_(bytes) {}

    bool is_good() const { return good_; }
    bool is_empty() const { return bytes_.empty(); }

    uint64_t number() {
        uint64_t number = 0;
        for (unsigned shift = 0; shift < 64 && !bytes_.empty(); shift += 7) {
            const auto byte = static_cast<unsigned char>(bytes_.front());
            bytes_.remove_prefix(1);
            number |= uint64_t{byte & 0x7fU} << shift;
            if (byte < 0x80) return number;
        }
        good_ = false;
        return 0;
    }
    uint64_t difference(uint64_t base) { return base + unfolded(number()); }
    std::string_view bytes() {
        const uint64_t size = number();
        good_ = good_ && size <= bytes_.size();
        if (!good_) return {};
        const std::string_view taken = bytes_.substr(0, size);
        bytes_.remove_prefix(size);
        return taken;
    }

private:
    std::string_view bytes_;
    bool good_ = true;
};

// A sum leans on the entry's number where there is one: mostly that is its last.
uint64_t base_of(const Entry &entry) {
    return entry.form == Entry::Form::number ? entry.number : 0;
}

unsigned head_of(const Entry &entry, const State &state) {
    const bool sums = entry.sum.n != 0;
    return static_cast<unsigned>(entry.form) | (entry.ordinal != 0 ? has_ordinal : 0) |
           (entry.time != state.time ? has_time : 0) | (sums ? has_sum : 0) |
           (sums && entry.sum.last != base_of(entry) ? has_last : 0);
}

void put_sum(std::string &out, const Entry &entry, unsigned head) {
    put(out, entry.sum.n);
    if (head & has_last) put_difference(out, entry.sum.last, base_of(entry));
    put_difference(out, entry.sum.min, entry.sum.last);
    put_difference(out, entry.sum.max, entry.sum.last);
}

void put_entry(std::string &out, const Entry &entry, int64_t series_before, const State &state) {
    const unsigned head = head_of(entry, state);
    out += static_cast<char>(head);
    put_difference(out, static_cast<uint64_t>(entry.series), static_cast<uint64_t>(series_before));
    if (head & has_ordinal) put(out, entry.ordinal);
    if (entry.form == Entry::Form::number || entry.form == Entry::Form::row) put(out, entry.number);
    if (entry.form == Entry::Form::bytes) {
        put(out, entry.bytes.size());
        out += entry.bytes;
    }
    if (head & has_time)
        put_difference(out, static_cast<uint64_t>(entry.time), static_cast<uint64_t>(state.time));
    if (head & has_sum) put_sum(out, entry, head);
}

void take_sum(Source &source, Entry &entry, uint64_t head) {
    entry.sum.n = source.number();
    entry.sum.last = base_of(entry);
    if (head & has_last) entry.sum.last = source.difference(entry.sum.last);
    entry.sum.min = source.difference(entry.sum.last);
    entry.sum.max = source.difference(entry.sum.last);
}

bool take_entry(Source &source, Entry &entry, int64_t series_before, const State &state) {
    const uint64_t head = source.number();
    if (head > known_bits) return false;
    entry.form = static_cast<Entry::Form>(head & form_bits);
    entry.series = static_cast<int64_t>(source.difference(static_cast<uint64_t>(series_before)));
    if (head & has_ordinal) entry.ordinal = static_cast<uint32_t>(source.number());
    if (entry.form == Entry::Form::number || entry.form == Entry::Form::row)
        entry.number = source.number();
    if (entry.form == Entry::Form::bytes) entry.bytes = source.bytes();
    entry.time = state.time;
    if (head & has_time)
        entry.time = static_cast<int64_t>(source.difference(static_cast<uint64_t>(state.time)));
    if (head & has_sum) take_sum(source, entry, head);
    return source.is_good();
}

} // namespace

std::string pack(const State &state) {
    std::string out;
    out.reserve(16 * state.entries.size());
    int64_t series = 0;
    for (const Entry &entry : state.entries) {
        put_entry(out, entry, series, state);
        series = entry.series;
    }
    return out;
}

bool unpack(std::string_view packed, State &state) {
    Source source(packed);
    state.entries.clear();
    state.entries.reserve(packed.size() / 8);
    int64_t series = 0;
    while (!source.is_empty()) {
        Entry &entry = state.entries.emplace_back();
        if (!take_entry(source, entry, series, state)) return false;
        series = entry.series;
    }
    return true;
}

} // namespace dtfleet
