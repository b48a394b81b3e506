#include "engine.h"

#include "fleet/store/sqlite/chart.h"
#include "samples.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

namespace dtfleet {

Fresh::Fresh() {
    std::string directory = std::filesystem::temp_directory_path() / "fleet.XXXXXX";
    name_ = std::filesystem::path(::mkdtemp(directory.data())) / "fleet.db";
}

Fresh::~Fresh() { std::filesystem::remove_all(std::filesystem::path(name_).parent_path()); }

std::vector<std::string> rows_of(const std::string &database, const std::string &sql) {
    return rows_in_file(database, sql);
}

void execute(const std::string &database, const std::string &sql) {
    sqlite::Database(database, sqlite::Database::Access::write).execute(sql.c_str());
}

const char *const value_bytes = "coalesce(number, bytes, '')";
const char *const series_name = "s.collector";

std::string name_in_view(const std::string &collector) { return collector; }

std::vector<Point> points_of(const std::string &database, int64_t device, int64_t series,
                             uint32_t ordinal, Microseconds from, Microseconds to, size_t columns,
                             bool too_many) {
    sqlite::Database opened(database, sqlite::Database::Access::read);
    const size_t most_looks = too_many ? 1000 : 1'000'000;
    return sqlite::read_chart(opened, {device, series, ordinal, from, to, columns}, most_looks);
}

void delete_runs(const std::string &database, int64_t first_day) {
    execute(database, fmt::format("DELETE FROM value WHERE id < (SELECT min(first) FROM collection "
                                  "WHERE time >= {0} * 86400000000);"
                                  "DELETE FROM collection WHERE time < {0} * 86400000000",
                                  first_day));
}

} // namespace dtfleet
