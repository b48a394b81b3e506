// The rows of the table of series.
#pragma once

#include "fleet/store/series.h"
#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

class SqliteSeries final : public SeriesRows {
public:
    explicit SqliteSeries(Database &database) : database_(database) {}

    std::vector<Found> find_or_make(std::span<const Wanted> wanted) override;
    void mark_logs(const std::vector<int64_t> &ids) override;
    std::optional<Series> find(int64_t id) override;
    void change_meanings(const MeaningOf &meaning_of) override;

private:
    std::optional<Found> find(const Wanted &wanted);
    Found make(const Wanted &wanted);

    Database &database_;
};

} // namespace dtfleet::sqlite
