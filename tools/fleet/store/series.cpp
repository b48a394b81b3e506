#include "fleet/store/series.h"

namespace dtfleet {
namespace {

// A device may invent new keys all the time; what is known is read again when it is forgotten.
constexpr size_t most_keys = 500'000;
constexpr size_t most_collectors = 50'000;

constexpr int64_t is_wanted = -1; // in the place of an id

constexpr size_t place_of(dt::decode::Kind type) { return static_cast<size_t>(type); }

} // namespace

void SeriesTable::begin_batch() {
    for (const Wanted &wanted : wanted_) { // the last batch failed
        int64_t &id = wanted.key->ids[place_of(wanted.type)];
        if (id == is_wanted) id = 0;
    }
    for (Key *key : new_logs_) key->is_known_log = false;
    wanted_.clear();
    new_logs_.clear();
    if (keys_.size() <= most_keys && collectors_.size() <= most_collectors) return;
    forget();
    numbers_.clear();
    collectors_.clear();
}

void SeriesTable::forget() {
    wanted_.clear();
    new_logs_.clear();
    keys_.clear();
    facts_.clear();
}

void SeriesTable::begin_run(const std::vector<std::string> &collectors) {
    ++run_;
    collectors_of_run_.clear();
    for (const std::string &name : collectors) collectors_of_run_.push_back(number_of(name));
}

uint32_t SeriesTable::number_of(const std::string &collector) {
    const auto [known, is_new] =
        numbers_.emplace(collector, static_cast<uint32_t>(collectors_.size()));
    if (is_new) collectors_.push_back(collector);
    return known->second;
}

Key &SeriesTable::key_of(const Sample &sample) {
    const uint32_t collector = collectors_of_run_[sample.collector];
    const What what{uint64_t{collector} << 32 | sample.section, sample.key};
    const auto [known, is_new] = keys_.try_emplace(what);
    Key &key = known->second;
    if (is_new) {
        key.what = what;
        key.log = meaning_of(collectors_[collector], sample.section, sample.key).log;
    }
    if (key.run != run_) key.arrivals = 0;
    key.run = run_;
    return key;
}

void SeriesTable::want(Key &key, dt::decode::Kind type) {
    int64_t &id = key.ids[place_of(type)];
    if (id != 0) return;
    wanted_.push_back({&key, type});
    id = is_wanted;
}

// Its string series is wanted already.
void SeriesTable::mark_log(Key &key) {
    if (!key.is_known_log) new_logs_.push_back(&key);
    key.is_known_log = true;
}

void SeriesTable::resolve() {
    if (!wanted_.empty()) resolve_wanted();
    if (!new_logs_.empty()) mark_new_logs();
}

void SeriesTable::resolve_wanted() {
    std::vector<SeriesRows::Wanted> rows;
    for (const auto &[key, type] : wanted_) {
        const std::string &collector = collector_of(*key);
        const auto section = static_cast<uint32_t>(key->what.first);
        rows.push_back({collector, section, key->what.second, type,
                        &meaning_of(collector, section, key->what.second)});
    }
    const std::vector<SeriesRows::Found> found = rows_.find_or_make(rows);
    for (size_t i = 0; i < found.size(); ++i) {
        const auto &[key, type] = wanted_[i];
        key->ids[place_of(type)] = found[i].id;
        key->is_signed = found[i].is_signed;
        key->is_known_log |= found[i].is_log;
        facts_[found[i].id] = {type, key->is_signed, key->what};
    }
    wanted_.clear();
}

void SeriesTable::mark_new_logs() {
    std::vector<int64_t> ids;
    for (const Key *key : new_logs_) ids.push_back(key->ids[place_of(dt::decode::Kind::string)]);
    rows_.mark_logs(ids);
    new_logs_.clear();
}

const SeriesTable::Facts &SeriesTable::facts_of(int64_t series) {
    const auto [known, is_new] = facts_.try_emplace(series);
    Facts &facts = known->second;
    if (!is_new) return facts;
    const std::optional<Series> found = rows_.find(series);
    if (!found) return facts;
    const uint64_t collector = number_of(found->collector);
    return facts = {found->type, found->is_signed, {collector << 32 | found->section, found->key}};
}

// What is said of one section holds before what is said of all.
const SeriesMeaning &SeriesTable::meaning_of(const std::string &collector, uint32_t section,
                                             uint32_t key) const {
    static const SeriesMeaning nothing;
    const SeriesMeaning *of_all = &nothing;
    const auto [begin, end] = meanings_.equal_range({collector, key});
    for (auto at = begin; at != end; ++at) {
        if (at->second.section == section) return at->second;
        if (!at->second.section) of_all = &at->second;
    }
    return *of_all;
}

void SeriesTable::learn(const std::vector<SeriesMeaning> &meanings) {
    meanings_.clear();
    for (const SeriesMeaning &meaning : meanings)
        meanings_.emplace(std::pair(meaning.collector, meaning.key), meaning);
    forget();
}

void SeriesTable::take_meanings(const std::vector<SeriesMeaning> &meanings) {
    learn(meanings);
    rows_.change_meanings([this](const std::string &collector, uint32_t section,
                                 uint32_t key) -> const auto & {
        return meaning_of(collector, section, key);
    });
}

} // namespace dtfleet
