#include "fleet/commands/csv.h"

#include <algorithm>

namespace dtfleet {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

} // namespace

CsvReader::CsvReader(std::string_view text) : text_(text) {
    if (text_.starts_with(byte_order_mark)) text_.remove_prefix(byte_order_mark.size());
}

bool CsvReader::take(char c) {
    if (text_.empty() || text_.front() != c) return false;
    text_.remove_prefix(1);
    if (c == '\n') ++line_;
    return true;
}

std::string CsvReader::field() {
    std::string value;
    if (!take('"')) {
        const size_t size = std::min(text_.find_first_of(",\r\n"), text_.size());
        value = text_.substr(0, size);
        text_.remove_prefix(size);
        return value;
    }
    while (!text_.empty()) {
        const char c = text_.front();
        take(c);
        if (c == '"' && !take('"')) break;
        value += c;
    }
    return value;
}

std::optional<std::vector<std::string>> CsvReader::next() {
    while (take('\r') || take('\n')) {
    }
    if (text_.empty()) return std::nullopt;
    begun_ = line_;
    std::vector<std::string> fields{field()};
    // What stands behind closing quotes is a field of its own: the number of fields shows it.
    while (!text_.empty() && text_.front() != '\r' && text_.front() != '\n') {
        (void)take(',');
        fields.push_back(field());
    }
    return fields;
}

} // namespace dtfleet
