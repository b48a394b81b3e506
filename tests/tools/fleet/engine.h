// The engine that a test program is linked with, for stories that are the same on each.
#pragma once

#include "fleet/store/store.h"

#include <memory>
#include <string>
#include <vector>

namespace dtfleet {

// A new and empty database, gone at the end.
class Fresh {
public:
    Fresh();
    ~Fresh();
    Fresh(const Fresh &) = delete;
    Fresh &operator=(const Fresh &) = delete;
    const std::string &name() const { return name_; }

private:
    std::string name_;
};

// What a query answers, each row as one text: its columns with a bar between them, numbers in
// decimal, truths as 0 and 1, bytes as they are.
std::vector<std::string> rows_of(const std::string &database, const std::string &sql);

inline int64_t number_of(const std::string &database, const std::string &sql) {
    return std::stoll(rows_of(database, sql).at(0));
}

void execute(const std::string &database, const std::string &sql);

// In SQL: a value of value_flat as bytes, whatever it is.
extern const char *const value_bytes;

// In SQL: the collector of a row s of series as value_flat has it.
extern const char *const series_name;

// As value_flat has the name of a collector.
std::string name_in_view(const std::string &collector);

// Reader::points, also as if very few values were too many.
std::vector<Point> points_of(const std::string &database, int64_t device, int64_t series,
                             uint32_t ordinal, Microseconds from, Microseconds to, size_t columns,
                             bool too_many = false);

// Deletes runs of before that day, and the values that they have stored.
void delete_runs(const std::string &database, int64_t first_day);

} // namespace dtfleet
