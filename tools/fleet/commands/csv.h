// Files of comma-separated values, as spreadsheets write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

// Reads record by record: fields in quotes may hold commas, line feeds and doubled quotes. text
// must outlive it.
class CsvReader {
public:
    explicit CsvReader(std::string_view text);

    // The next record that is not empty; nothing at the end.
    std::optional<std::vector<std::string>> next();

    // The line in which that record begins.
    size_t line() const { return begun_; }

private:
    std::string field();
    bool take(char c);

    std::string_view text_;
    size_t line_ = 1;
    size_t begun_ = 1;
};

} // namespace dtfleet
