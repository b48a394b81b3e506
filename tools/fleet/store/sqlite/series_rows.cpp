#include "fleet/store/sqlite/series_rows.h"

#include "fleet/store/sqlite/rows.h"
#include "host/text.h"

namespace dtfleet::sqlite {
namespace {

// Names that are no text go to the database as bytes.
template <typename... Values>
void bind_place(Statement &statement, const SeriesRows::Wanted &wanted, const Values &...values) {
    const std::string_view name = wanted.collector;
    const auto type = static_cast<int>(wanted.type);
    if (dtctl::is_utf8(name) && name.find('\0') == std::string_view::npos)
        statement.with(name, wanted.section, wanted.key, type, values...);
    else
        statement.with(Bytes{name}, wanted.section, wanted.key, type, values...);
}

} // namespace

std::vector<SeriesRows::Found> SqliteSeries::find_or_make(std::span<const Wanted> wanted) {
    std::vector<Found> all;
    for (const Wanted &one : wanted) {
        const auto found = find(one);
        all.push_back(found ? *found : make(one));
    }
    return all;
}

std::optional<SeriesRows::Found> SqliteSeries::find(const Wanted &wanted) {
    Statement &find = database_.statement("SELECT id, signed, log FROM series WHERE collector = ? "
                                          "AND section = ? AND key = ? AND type = ?");
    bind_place(find, wanted);
    std::optional<Found> found;
    each_row(find, [&](const Statement &row) {
        found = Found{row.number(0), row.number(1) != 0, row.number(2) != 0};
    });
    return found;
}

SeriesRows::Found SqliteSeries::make(const Wanted &wanted) {
    const SeriesMeaning &meaning = *wanted.meaning;
    Statement &insert =
        database_.statement("INSERT INTO series(collector, section, key, type, name, unit, signed) "
                            "VALUES(?, ?, ?, ?, ?, ?, ?)");
    bind_place(insert, wanted, std::string_view(meaning.name), std::string_view(meaning.unit),
               meaning.is_signed);
    insert.step();
    insert.reset();
    return {database_.last_id(), meaning.is_signed, false};
}

void SqliteSeries::mark_logs(const std::vector<int64_t> &ids) {
    for (const int64_t id : ids)
        database_.statement("UPDATE series SET log = 1 WHERE id = ?").run(id);
}

std::optional<Series> SqliteSeries::find(int64_t id) { return find_series(database_, id); }

void SqliteSeries::change_meanings(const MeaningOf &meaning_of) {
    Statement &update =
        database_.statement("UPDATE series SET name = ?1, unit = ?2, signed = ?3 WHERE id = ?4 AND "
                            "(name <> ?1 OR unit <> ?2 OR signed <> ?3)");
    each_row(database_.statement("SELECT id, collector, section, key FROM series"),
             [&](const Statement &row) {
                 const SeriesMeaning &meaning =
                     meaning_of(std::string(row.bytes(1)), static_cast<uint32_t>(row.number(2)),
                                static_cast<uint32_t>(row.number(3)));
                 update.run(std::string_view(meaning.name), std::string_view(meaning.unit),
                            meaning.is_signed, row.number(0));
             });
}

} // namespace dtfleet::sqlite
