// The rows of the table of series.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/series.h"

namespace dtfleet::postgres {

class PostgresSeries final : public SeriesRows {
public:
    explicit PostgresSeries(Connection &connection) : connection_(connection) {}

    // In a statement of its own: they stay whatever becomes of the runs that brought them.
    std::vector<Found> find_or_make(std::span<const Wanted> wanted) override;
    void mark_logs(const std::vector<int64_t> &ids) override;
    std::optional<Series> find(int64_t id) override;
    void change_meanings(const MeaningOf &meaning_of) override;

private:
    Connection &connection_;
};

} // namespace dtfleet::postgres
