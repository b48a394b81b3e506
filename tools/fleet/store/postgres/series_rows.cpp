#include "fleet/store/postgres/series_rows.h"

#include "fleet/store/postgres/rows.h"
#include "fleet/store/postgres/text.h"

namespace dtfleet::postgres {
namespace {

struct Places {
    std::vector<Bytes> collectors;
    std::vector<int64_t> sections, keys, types;

    explicit Places(std::span<const SeriesRows::Wanted> wanted) {
        for (const SeriesRows::Wanted &one : wanted) {
            collectors.push_back({one.collector});
            sections.push_back(one.section);
            keys.push_back(one.key);
            types.push_back(static_cast<int64_t>(one.type));
        }
    }
};

void make(Connection &connection, std::span<const SeriesRows::Wanted> wanted,
          const Places &places) {
    std::vector<std::string> texts, names, units;
    std::vector<int64_t> signs;
    for (const SeriesRows::Wanted &one : wanted) {
        texts.push_back(shown(one.collector));
        names.push_back(shown(one.meaning->name));
        units.push_back(shown(one.meaning->unit));
        signs.push_back(one.meaning->is_signed);
    }
    connection.query(
        "INSERT INTO series(collector, section, key, type, collector_text, name, unit, signed) "
        "SELECT c, s, k, y, t, n, u, g <> 0 FROM unnest($1, $2, $3, $4, $5, $6, $7, $8) "
        "AS w(c, s, k, y, t, n, u, g) WHERE NOT EXISTS (SELECT 1 FROM series WHERE collector = c "
        "AND section = s AND key = k AND type = y) ORDER BY c, s, k, y "
        "ON CONFLICT (collector, section, key, type) DO NOTHING",
        places.collectors, places.sections, places.keys, places.types, texts, names, units, signs);
}

} // namespace

std::vector<SeriesRows::Found> PostgresSeries::find_or_make(std::span<const Wanted> wanted) {
    const Places places(wanted);
    make(connection_, wanted, places);
    const Result rows = connection_.query(
        "SELECT w.n, s.id, s.signed, s.log FROM unnest($1, $2, $3, $4) WITH ORDINALITY "
        "AS w(c, s, k, y, n) JOIN series s ON s.collector = c AND s.section = w.s AND s.key = k "
        "AND s.type = y",
        places.collectors, places.sections, places.keys, places.types);
    std::vector<Found> found(wanted.size());
    for (int row = 0; row < rows.rows(); ++row)
        found[static_cast<size_t>(rows.number(row, 0)) - 1] = {
            rows.number(row, 1), rows.number(row, 2) != 0, rows.number(row, 3) != 0};
    return found;
}

void PostgresSeries::mark_logs(const std::vector<int64_t> &ids) {
    connection_.query("UPDATE series SET log = true WHERE id = ANY($1) AND NOT log", ids);
}

std::optional<Series> PostgresSeries::find(int64_t id) { return find_series(connection_, id); }

void PostgresSeries::change_meanings(const MeaningOf &meaning_of) {
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
