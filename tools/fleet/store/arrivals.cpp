#include "fleet/store/arrivals.h"

#include "fleet/store/logs.h"

#include <algorithm>

namespace dtfleet {

Arrivals::Arrivals(const RunRecord &run, SeriesTable &series) : run_(run), series_(series) {
    series_.begin_run(run.samples.collectors);
    values_.reserve(run.samples.list.size());
    for (const Sample &sample : run.samples.list) {
        Key &key = series_.key_of(sample);
        series_.want(key, sample.kind);
        values_.push_back({&sample, &key, key.arrivals++, false});
    }
    find_logs();
}

// Strings of one key stand together, whatever came between them.
void Arrivals::find_logs() {
    std::vector<size_t> texts;
    for (size_t i = 0; i < values_.size(); ++i)
        if (values_[i].sample->kind == dt::decode::Kind::string) texts.push_back(i);
    const auto before = [&](size_t a, size_t b) {
        return values_[a].key->what < values_[b].key->what;
    };
    std::stable_sort(texts.begin(), texts.end(), before);
    for (auto from = texts.begin(); from != texts.end();) {
        const Key *key = values_[*from].key;
        const auto is_other = [&](size_t i) { return values_[i].key != key; };
        const auto to = std::find_if(from, texts.end(), is_other);
        judge_log({from, to});
        from = to;
    }
}

// The strings of a key. A broken run may have cut its last log short, which then cannot be joined
// to what is stored; the next run brings it again.
void Arrivals::judge_log(std::span<const size_t> places) {
    Key &key = *values_[places.front()].key;
    if (!key.log.value_or(true)) return;
    std::vector<std::string_view> strings;
    strings.reserve(places.size());
    for (const size_t place : places)
        strings.push_back(run_.samples.bytes_of(*values_[place].sample));
    if (!key.log && !has_stamps(strings)) return;
    const bool is_cut = !is_whole(run_.outcome) && values_.back().key == &key;
    if (!is_cut && strings.size() % 2 != 0) return;
    for (const size_t place : places) values_[place].is_of_log = true;
    if (is_cut) return;
    logs_.push_back({&key, std::move(strings)});
    series_.mark_log(key);
}

bool Arrivals::has_come(int64_t series, uint32_t ordinal) {
    if (counts_.empty())
        for (const Value &value : values_) ++counts_[value.key->what];
    const auto found = counts_.find(series_.facts_of(series).what);
    return found != counts_.end() && found->second > ordinal;
}

void Arrivals::give(Comparison &comparison) const {
    for (const Value &value : values_) {
        if (value.is_of_log) continue;
        const Sample &sample = *value.sample;
        Arrival arrival{value.key->ids[static_cast<size_t>(sample.kind)],
                        value.ordinal,
                        sample.kind,
                        value.key->is_signed,
                        sample.number,
                        {}};
        if (!is_number(sample.kind)) arrival.bytes = run_.samples.bytes_of(sample);
        comparison.take(arrival);
    }
}

} // namespace dtfleet
