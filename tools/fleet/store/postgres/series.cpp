#include "fleet/store/postgres/series.h"

#include "fleet/store/postgres/text.h"

namespace dtfleet::postgres {
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
    wanted_.clear();
    new_logs_.clear();
    if (keys_.size() > most_keys || collectors_.size() > most_collectors) {
        keys_.clear();
        facts_.clear();
        numbers_.clear();
        collectors_.clear();
    }
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
    if (!wanted_.empty()) {
        const Places places = places_of_wanted();
        make(places);
        find(places);
        wanted_.clear();
    }
    if (!new_logs_.empty()) mark_new_logs();
}

SeriesTable::Places SeriesTable::places_of_wanted() const {
    Places places;
    for (const Wanted &wanted : wanted_) {
        places.collectors.push_back({collector_of(*wanted.key)});
        places.sections.push_back(static_cast<uint32_t>(wanted.key->what.first));
        places.keys.push_back(wanted.key->what.second);
        places.types.push_back(static_cast<int64_t>(wanted.type));
    }
    return places;
}

void SeriesTable::make(const Places &places) {
    std::vector<std::string> texts, names, units;
    std::vector<int64_t> signs;
    for (const Wanted &wanted : wanted_) {
        const std::string &collector = collector_of(*wanted.key);
        const auto section = static_cast<uint32_t>(wanted.key->what.first);
        const SeriesMeaning &meaning = meaning_of(collector, section, wanted.key->what.second);
        texts.push_back(shown(collector));
        names.push_back(shown(meaning.name));
        units.push_back(shown(meaning.unit));
        signs.push_back(meaning.is_signed);
    }
    connection_.query(
        "INSERT INTO series(collector, section, key, type, collector_text, name, unit, signed) "
        "SELECT c, s, k, y, t, n, u, g <> 0 FROM unnest($1, $2, $3, $4, $5, $6, $7, $8) "
        "AS w(c, s, k, y, t, n, u, g) WHERE NOT EXISTS (SELECT 1 FROM series WHERE collector = c "
        "AND section = s AND key = k AND type = y) ORDER BY c, s, k, y "
        "ON CONFLICT (collector, section, key, type) DO NOTHING",
        places.collectors, places.sections, places.keys, places.types, texts, names, units, signs);
}

void SeriesTable::find(const Places &places) {
    const Result found = connection_.query(
        "SELECT w.n, s.id, s.signed, s.log FROM unnest($1, $2, $3, $4) WITH ORDINALITY "
        "AS w(c, s, k, y, n) JOIN series s ON s.collector = c AND s.section = w.s AND s.key = k "
        "AND s.type = y",
        places.collectors, places.sections, places.keys, places.types);
    for (int row = 0; row < found.rows(); ++row) {
        const Wanted &wanted = wanted_[static_cast<size_t>(found.number(row, 0)) - 1];
        const int64_t id = found.number(row, 1);
        wanted.key->ids[place_of(wanted.type)] = id;
        wanted.key->is_signed = found.number(row, 2) != 0;
        wanted.key->is_known_log |= found.number(row, 3) != 0;
        facts_[id] = {wanted.type, wanted.key->is_signed, wanted.key->what};
    }
}

void SeriesTable::mark_new_logs() {
    std::vector<int64_t> ids;
    for (const Key *key : new_logs_) ids.push_back(key->ids[place_of(dt::decode::Kind::string)]);
    connection_.query("UPDATE series SET log = true WHERE id = ANY($1) AND NOT log", ids);
    new_logs_.clear();
}

const SeriesTable::Facts &SeriesTable::facts_of(int64_t series) {
    const auto [known, is_new] = facts_.try_emplace(series);
    Facts &facts = known->second;
    if (!is_new) return facts;
    const Result found = connection_.query(
        "SELECT type, signed, collector, section, key FROM series WHERE id = $1", series);
    if (found.rows() == 0) return facts;
    const uint64_t collector = number_of(std::string(found.bytes(0, 2)));
    facts.type = static_cast<dt::decode::Kind>(found.number(0, 0));
    facts.is_signed = found.number(0, 1) != 0;
    facts.what = {collector << 32 | static_cast<uint32_t>(found.number(0, 3)),
                  static_cast<uint32_t>(found.number(0, 4))};
    return facts;
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

void SeriesTable::take_meanings(const std::vector<SeriesMeaning> &meanings) {
    meanings_.clear();
    wanted_.clear();
    for (const SeriesMeaning &meaning : meanings)
        meanings_.emplace(std::pair(meaning.collector, meaning.key), meaning);
    keys_.clear();
    facts_.clear();
    std::vector<int64_t> ids, signs;
    std::vector<std::string> names, units;
    const Result all = connection_.query("SELECT id, collector, section, key FROM series");
    for (int row = 0; row < all.rows(); ++row) {
        const SeriesMeaning &meaning =
            meaning_of(std::string(all.bytes(row, 1)), static_cast<uint32_t>(all.number(row, 2)),
                       static_cast<uint32_t>(all.number(row, 3)));
        ids.push_back(all.number(row, 0));
        names.push_back(shown(meaning.name));
        units.push_back(shown(meaning.unit));
        signs.push_back(meaning.is_signed);
    }
    connection_.query("UPDATE series SET name = n, unit = u, signed = (g <> 0) FROM "
                      "unnest($1, $2, $3, $4) AS w(i, n, u, g) WHERE id = i AND "
                      "(name <> n OR unit <> u OR signed <> (g <> 0))",
                      ids, names, units, signs);
}

} // namespace dtfleet::postgres
