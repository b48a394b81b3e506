// One table of a TOML file, read key by key: what is wrong is complained about with its line, and
// so is what nobody asked for.
#pragma once

#include "fleet/inventory/inventory.h"

#include <toml++/toml.h>

#include <set>

namespace dtfleet {

// The file that is being read, and where its mistakes go.
class Source {
public:
    Source(std::string file, std::vector<Complaint> &complaints)
        : file_(std::move(file)), complaints_(complaints) {}

    void complain(size_t line, const std::string &text);
    const std::string &file() const { return file_; }

    // What is read was made from another file, line by line: mistakes are that one's.
    void was_made_from(const std::string &file, const std::vector<size_t> &lines) {
        file_ = file;
        lines_ = &lines;
    }

    // Where the text's line comes from.
    size_t line_of(size_t line) const {
        return lines_ && line != 0 && line <= lines_->size() ? (*lines_)[line - 1] : line;
    }

private:
    std::string file_;
    const std::vector<size_t> *lines_ = nullptr;
    std::vector<Complaint> &complaints_;
};

class Table {
public:
    // Both must outlive it. what names the table in complaints: "a device".
    Table(const toml::table &table, Source &source) : table_(table), source_(source) {}

    // Each takes the key's value; nothing when it is not there or wrong, which is complained about.
    std::optional<std::string> text(std::string_view key);
    std::optional<std::string> name(std::string_view key); // 1 to 200 bytes that can be shown
    std::optional<int64_t> number(std::string_view key, int64_t least, int64_t most);
    std::optional<bool> flag(std::string_view key);
    std::optional<Seconds> duration(std::string_view key, bool or_never = false);
    std::optional<uint64_t> size(std::string_view key);
    std::vector<std::string> texts(std::string_view key);
    std::vector<Table> tables(std::string_view key);  // [[key]]
    std::optional<Table> table(std::string_view key); // [key]

    bool has(std::string_view key) const { return table_.contains(key); }

    // Complains about the keys that were not taken.
    void finish();

    void complain(const std::string &text) { source_.complain(line(), text); }
    void complain(std::string_view key, const std::string &text);
    size_t line() const { return table_.source().begin.line; }
    Source &source() const { return source_; }

private:
    const toml::node *take(std::string_view key);

    const toml::table &table_;
    Source &source_;
    std::set<std::string, std::less<>> taken_;
};

} // namespace dtfleet
