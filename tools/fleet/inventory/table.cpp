#include "fleet/inventory/table.h"

#include "host/text.h"

#include <fmt/format.h>

namespace dtfleet {
namespace {

constexpr size_t most_complaints = 100;
constexpr size_t longest_name = 200;

} // namespace

bool is_name(std::string_view text) {
    return !text.empty() && text.size() <= longest_name && dtctl::escape(text) == text;
}

void Source::complain(size_t line, const std::string &text) {
    if (complaints_.size() < most_complaints)
        complaints_.push_back({file_, line_of(line), dtctl::escape(text)});
}

void Table::complain(std::string_view key, const std::string &text) {
    const toml::node *node = table_.get(key);
    source_.complain(node ? node->source().begin.line : line(), fmt::format("{}: {}", key, text));
}

const toml::node *Table::take(std::string_view key) {
    taken_.emplace(key);
    return table_.get(key);
}

std::optional<std::string> Table::text(std::string_view key) {
    const toml::node *node = take(key);
    if (!node) return std::nullopt;
    if (const auto *value = node->as_string()) return value->get();
    complain(key, "must be a text in quotes");
    return std::nullopt;
}

std::optional<std::string> Table::name(std::string_view key) {
    auto value = text(key);
    if (!value) return std::nullopt;
    if (is_name(*value)) return value;
    complain(key, fmt::format("must have 1 to {} bytes, none of them a control character or a "
                              "backslash",
                              longest_name));
    return std::nullopt;
}

std::optional<int64_t> Table::number(std::string_view key, int64_t least, int64_t most) {
    const toml::node *node = take(key);
    if (!node) return std::nullopt;
    const auto *value = node->as_integer();
    if (value && value->get() >= least && value->get() <= most) return value->get();
    complain(key, fmt::format("must be a number from {} to {}", least, most));
    return std::nullopt;
}

std::optional<bool> Table::flag(std::string_view key) {
    const toml::node *node = take(key);
    if (!node) return std::nullopt;
    if (const auto *value = node->as_boolean()) return value->get();
    complain(key, "must be true or false");
    return std::nullopt;
}

std::optional<Seconds> Table::duration(std::string_view key, bool or_never) {
    const auto value = text(key);
    if (!value) return std::nullopt;
    if (or_never && *value == "never") return Seconds(0);
    if (auto parsed = parse_duration(*value)) return parsed;
    complain(key, fmt::format("must be a time like \"10s\", \"5m\", \"2h\" or \"7d\"{}, not \"{}\"",
                              or_never ? " or \"never\"" : "", *value));
    return std::nullopt;
}

std::optional<uint64_t> Table::size(std::string_view key) {
    const auto value = text(key);
    if (!value) return std::nullopt;
    if (auto parsed = parse_size(*value)) return parsed;
    complain(key, fmt::format("must be a size like \"500MB\" or \"2GB\", not \"{}\"", *value));
    return std::nullopt;
}

std::vector<std::string> Table::texts(std::string_view key) {
    const toml::node *node = take(key);
    if (!node) return {};
    std::vector<std::string> found;
    if (const auto *one = node->as_string()) return {one->get()};
    const auto *list = node->as_array();
    for (size_t i = 0; list && i < list->size(); ++i)
        if (const auto *item = (*list)[i].as_string()) found.push_back(item->get());
    if (!list || found.size() != list->size()) complain(key, "must be a list of texts in quotes");
    return found;
}

std::vector<Table> Table::tables(std::string_view key) {
    const toml::node *node = take(key);
    if (!node) return {};
    const auto *list = node->as_array();
    std::vector<Table> found;
    for (size_t i = 0; list && i < list->size(); ++i)
        if (const auto *item = (*list)[i].as_table()) found.emplace_back(*item, source_);
    if (!list || found.size() != list->size())
        complain(key, fmt::format("must be tables: [[{}]]", key));
    return found;
}

std::optional<Table> Table::table(std::string_view key) {
    const toml::node *node = take(key);
    if (!node) return std::nullopt;
    if (const auto *inner = node->as_table()) return Table(*inner, source_);
    complain(key, fmt::format("must be a table: [{}]", key));
    return std::nullopt;
}

void Table::finish() {
    for (const auto &[key, node] : table_) {
        if (taken_.count(key.str()) == 0)
            source_.complain(key.source().begin.line,
                             fmt::format("there is no key '{}' here", key.str()));
    }
}

} // namespace dtfleet
