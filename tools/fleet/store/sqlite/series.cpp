#include "fleet/store/sqlite/series.h"

#include "host/text.h"

namespace dtfleet::sqlite {
namespace {

// A device may invent new keys all the time; what is known is read again when it is forgotten.
constexpr size_t most_keys = 500'000;
constexpr size_t most_collectors = 50'000;

bool is_text(std::string_view bytes) {
    return dtctl::is_utf8(bytes) && bytes.find('\0') == std::string_view::npos;
}

// Names that are no text go to the database as bytes.
template <typename... Values>
void bind_place(Statement &statement, const std::string &collector, const Values &...values) {
    if (is_text(collector))
        statement.with(std::string_view(collector), values...);
    else
        statement.with(Bytes{collector}, values...);
}

} // namespace

void SeriesTable::begin_run(const std::vector<std::string> &collectors) {
    if (keys_.size() > most_keys) keys_.clear();
    if (collectors_.size() > most_collectors) {
        keys_.clear();
        numbers_.clear();
        collectors_.clear();
    }
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
    const std::pair<uint64_t, uint32_t> what{uint64_t{collector} << 32 | sample.section,
                                             sample.key};
    const auto [known, is_new] = keys_.try_emplace(what);
    Key &key = known->second;
    if (is_new) {
        key.what = what;
        const SeriesMeaning *meaning =
            meaning_of(collectors_[collector], sample.section, sample.key);
        if (meaning) key.log = meaning->log;
    }
    if (key.run != run_) key.arrivals = 0;
    key.run = run_;
    return key;
}

int64_t SeriesTable::id_of(Key &key, dt::decode::Kind type) {
    int64_t &id = key.ids[static_cast<size_t>(type)];
    if (id != 0) return id;
    const std::string &collector = collectors_[key.what.first >> 32];
    const auto section = static_cast<uint32_t>(key.what.first);
    Statement &find = database_.statement("SELECT id, signed, log FROM series WHERE collector = ? "
                                          "AND section = ? AND key = ? AND type = ?");
    bind_place(find, collector, section, key.what.second, static_cast<int>(type));
    if (find.step()) {
        id = find.number(0);
        key.is_signed = find.number(1) != 0;
        key.is_known_log |= find.number(2) != 0;
        find.reset();
        return id;
    }
    static const SeriesMeaning nothing;
    const SeriesMeaning *known = meaning_of(collector, section, key.what.second);
    const SeriesMeaning &meaning = known ? *known : nothing;
    Statement &insert =
        database_.statement("INSERT INTO series(collector, section, key, type, name, unit, signed) "
                            "VALUES(?, ?, ?, ?, ?, ?, ?)");
    bind_place(insert, collector, section, key.what.second, static_cast<int>(type),
               std::string_view(meaning.name), std::string_view(meaning.unit), meaning.is_signed);
    insert.step();
    insert.reset();
    key.is_signed = meaning.is_signed;
    return id = database_.last_id();
}

uint32_t SeriesTable::arrivals_of(int64_t series) const {
    Statement &find =
        database_.statement("SELECT collector, section, key FROM series WHERE id = ?");
    find.with(series);
    if (!find.step()) return 0;
    const auto collector = numbers_.find(std::string(find.bytes(0)));
    const auto section = static_cast<uint32_t>(find.number(1));
    const auto key = static_cast<uint32_t>(find.number(2));
    find.reset();
    if (collector == numbers_.end()) return 0;
    const auto known = keys_.find({uint64_t{collector->second} << 32 | section, key});
    return known != keys_.end() && known->second.run == run_ ? known->second.arrivals : 0;
}

void SeriesTable::mark_log(Key &key) {
    if (key.is_known_log) return;
    database_.statement("UPDATE series SET log = 1 WHERE id = ?")
        .run(id_of(key, dt::decode::Kind::string));
    key.is_known_log = true;
}

// What is said of one section holds before what is said of all.
const SeriesMeaning *SeriesTable::meaning_of(const std::string &collector, uint32_t section,
                                             uint32_t key) const {
    const SeriesMeaning *of_all = nullptr;
    const auto [begin, end] = meanings_.equal_range({collector, key});
    for (auto at = begin; at != end; ++at) {
        if (at->second.section == section) return &at->second;
        if (!at->second.section) of_all = &at->second;
    }
    return of_all;
}

void SeriesTable::take_meanings(const std::vector<SeriesMeaning> &meanings) {
    meanings_.clear();
    for (const SeriesMeaning &meaning : meanings)
        meanings_.emplace(std::pair(meaning.collector, meaning.key), meaning);
    keys_.clear();
    static const SeriesMeaning nothing;
    Statement &update =
        database_.statement("UPDATE series SET name = ?1, unit = ?2, signed = ?3 WHERE id = ?4 AND "
                            "(name <> ?1 OR unit <> ?2 OR signed <> ?3)");
    Statement &all = database_.statement("SELECT id, collector, section, key FROM series");
    while (all.step()) {
        const SeriesMeaning *known =
            meaning_of(std::string(all.bytes(1)), static_cast<uint32_t>(all.number(2)),
                       static_cast<uint32_t>(all.number(3)));
        const SeriesMeaning &meaning = known ? *known : nothing;
        update.run(std::string_view(meaning.name), std::string_view(meaning.unit),
                   meaning.is_signed, all.number(0));
    }
    all.reset();
}

} // namespace dtfleet::sqlite
