#include "../engine.h"

#include "fleet/store/postgres/chart.h"
#include "fleet/store/upkeep.h"
#include "host/text.h"
#include "server.h"

#include <fmt/format.h>

namespace dtfleet {

Fresh::Fresh() : name_(postgres_server().make_database()) { migrate_database(name_); }

Fresh::~Fresh() = default; // with its server

std::vector<std::string> rows_of(const std::string &database, const std::string &sql) {
    return PostgresServer::rows_of(database, sql);
}

void execute(const std::string &database, const std::string &sql) { rows_of(database, sql); }

const char *const value_bytes = "coalesce(convert_to(number::text, 'UTF8'), bytes, '')";
const char *const series_name = "s.collector_text";

std::string name_in_view(const std::string &collector) {
    return dtctl::is_utf8(collector) ? collector : dtctl::escape(collector);
}

std::vector<Point> points_of(const std::string &database, int64_t device, int64_t series,
                             uint32_t ordinal, Microseconds from, Microseconds to, size_t columns,
                             bool too_many) {
    postgres::Connection connection(database, postgres::Connection::Access::read);
    const int64_t most_runs = too_many ? 50 : 100'000;
    return postgres::read_chart(connection, {device, series, ordinal, from, to, columns},
                                most_runs);
}

void delete_runs(const std::string &database, int64_t first_day) {
    execute(database,
            fmt::format("DELETE FROM collection WHERE time < {} * 86400000000", first_day));
}

} // namespace dtfleet
