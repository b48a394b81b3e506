#include "fleet/store/comparison.h"

#include "fleet/store/number.h"

namespace dtfleet {
namespace {

void add(Sum &sum, const Arrival &arrival) {
    const uint64_t number = arrival.number;
    if (sum.n == 0 || is_less(number, sum.min, arrival.type, arrival.is_signed)) sum.min = number;
    if (sum.n == 0 || is_less(sum.max, number, arrival.type, arrival.is_signed)) sum.max = number;
    sum.last = number;
    ++sum.n;
}

} // namespace

Comparison::Comparison(State before, const Terms &terms, SameRow same_row)
    : terms_(terms), same_row_(std::move(same_row)), before_(std::move(before.entries)),
      taken_(before_.size()) {
    after_.time = terms.time;
    after_.full_day = before.full_day;
    after_.hour = before.hour;
    after_.entries.reserve(before_.size() + 1);
}

// Runs mostly bring the same in the same order.
Entry *Comparison::find(int64_t series, uint32_t ordinal) {
    const auto is_it = [&](size_t at) {
        return before_[at].series == series && before_[at].ordinal == ordinal;
    };
    if (next_ < before_.size() && is_it(next_)) {
        taken_[next_] = true;
        return &before_[next_++];
    }
    if (by_series_.empty())
        for (size_t i = 0; i < before_.size(); ++i) by_series_[before_[i].series].push_back(i);
    const auto found = by_series_.find(series);
    if (found == by_series_.end()) return nullptr;
    for (const size_t at : found->second) {
        if (!is_it(at)) continue;
        taken_[at] = true;
        next_ = at + 1;
        return &before_[at];
    }
    return nullptr;
}

bool Comparison::is_same(const Entry &entry, const Arrival &arrival) const {
    if (is_number(arrival.type))
        return entry.form == Entry::Form::number && entry.number == arrival.number;
    if (entry.form == Entry::Form::row)
        return arrival.bytes.size() > Entry::most_bytes &&
               same_row_(static_cast<int64_t>(entry.number), arrival.bytes);
    return entry.form == Entry::Form::bytes && entry.bytes == arrival.bytes;
}

// The value goes to the last of the rows.
void Comparison::put_value(Entry &entry, const Arrival &arrival) const {
    entry.bytes.clear();
    if (is_number(arrival.type)) {
        entry.form = Entry::Form::number;
        entry.number = arrival.number;
    } else if (arrival.bytes.size() > Entry::most_bytes) {
        entry.form = Entry::Form::row;
        entry.number = static_cast<uint64_t>(terms_.first_row) + rows_.size() - 1;
    } else {
        entry.form = Entry::Form::bytes;
        entry.bytes = arrival.bytes;
    }
}

void Comparison::take(const Arrival &arrival) {
    Entry *known = find(arrival.series, arrival.ordinal);
    const bool is_stored = terms_.stores_all || !known || !is_same(*known, arrival);
    Entry &entry = after_.entries.emplace_back(known ? std::move(*known) : Entry{});
    entry.series = arrival.series;
    entry.ordinal = arrival.ordinal;
    entry.time = terms_.time;
    if (is_stored) {
        const auto form =
            is_number(arrival.type) ? StoredValue::Form::number : StoredValue::Form::bytes;
        rows_.push_back({arrival.series, arrival.ordinal, form, arrival.number, arrival.bytes});
        put_value(entry, arrival);
    }
    if (is_number(arrival.type)) add(entry.sum, arrival);
}

// A key that came as something else is not gone, but its series has nothing any more.
void Comparison::finish(const HasCome &has_come) {
    for (size_t i = 0; i < before_.size(); ++i) {
        if (taken_[i]) continue;
        Entry &entry = after_.entries.emplace_back(std::move(before_[i]));
        if (!terms_.is_whole || entry.form == Entry::Form::gone) continue;
        if (!has_come(entry.series, entry.ordinal))
            rows_.push_back({entry.series, entry.ordinal, StoredValue::Form::gone, 0, {}});
        entry.form = Entry::Form::gone;
        entry.time = terms_.time;
        entry.bytes.clear();
    }
}

} // namespace dtfleet
