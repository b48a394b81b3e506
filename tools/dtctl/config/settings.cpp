#include "dtctl/config/settings.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"
#include "host/toml_guard.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace dtctl {
namespace {

// A request has so many bytes for group, key and default.
constexpr size_t max_name = 988;

void refuse_zero(std::string_view text) {
    if (text.find('\0') != text.npos) throw std::invalid_argument("a zero byte");
}

// A name that no device could ask for; long ones would also be kept once a setting.
void check_name(std::string_view name, const char *what) {
    if (name.find(' ') != name.npos)
        throw std::invalid_argument(
            fmt::format("a blank in a {}, which no device can ask for", what));
    if (name.size() > max_name)
        throw std::invalid_argument(fmt::format("a {} of more than {} bytes", what, max_name));
    refuse_zero(name);
}

[[noreturn]] void report(size_t line, const std::string &reason) {
    throw Failure(Exit::broken, fmt::format("line {}: {}", line, escape(reason)));
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    return quoted ? value.substr(1, value.size() - 2) : value;
}

void add_ini_line(Settings &settings, std::string &group, std::string_view line) {
    if (line.empty() || line.front() == ';' || line.front() == '#') return;
    if (line.front() == '[') {
        if (line.back() != ']') throw std::invalid_argument("a group without ]");
        group = trimmed(line.substr(1, line.size() - 2));
        check_name(group, "group");
        return;
    }
    const size_t equals = line.find('=');
    if (equals == line.npos) throw std::invalid_argument("neither [group] nor key = value");
    const std::string_view key = trimmed(line.substr(0, equals));
    if (key.empty()) throw std::invalid_argument("no key");
    settings.add(group, std::string(key), std::string(unquoted(trimmed(line.substr(equals + 1)))));
}

// Nothing for what has no text of its own.
std::optional<std::string> text_of(const toml::node &node) {
    if (const auto *text = node.as_string()) return text->get();
    if (const auto *number = node.as_integer()) return fmt::format("{}", number->get());
    if (const auto *number = node.as_floating_point()) return fmt::format("{}", number->get());
    if (const auto *flag = node.as_boolean()) return flag->get() ? "true" : "false";
    return std::nullopt;
}

void add_table(Settings &settings, const std::string &group, const toml::table &table);

void add_node(Settings &settings, const std::string &group, const std::string &name,
              const toml::node &node) {
    if (const toml::table *inner = node.as_table()) {
        const std::string dotted = group.empty() ? name : fmt::format("{}.{}", group, name);
        check_name(dotted, "group");
        return add_table(settings, dotted, *inner);
    }
    const auto text = text_of(node);
    if (!text) throw std::invalid_argument("an array, a date or a time: quote it");
    settings.add(group, name, *text);
}

void add_table(Settings &settings, const std::string &group, const toml::table &table) {
    for (const auto &[key, node] : table) {
        const std::string name(key.str());
        try {
            add_node(settings, group, name, node);
        } catch (const std::invalid_argument &error) {
            report(key.source().begin.line, fmt::format("{}: {}", name, error.what()));
        }
    }
}

} // namespace

void Settings::add(const std::string &group, const std::string &key, const std::string &value) {
    check_name(group, "group");
    check_name(key, "key");
    refuse_zero(value);
    if (!groups_[group].emplace(key, value).second)
        throw std::invalid_argument("set for the second time");
    ++size_;
}

const std::string *Settings::find(const std::string &group, const std::string &key) const {
    const auto keys = groups_.find(group);
    if (keys == groups_.end()) return nullptr;
    const auto value = keys->second.find(key);
    return value == keys->second.end() ? nullptr : &value->second;
}

Settings parse_ini(std::string_view text) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
    Settings settings;
    std::string group;
    for (size_t number = 1; !text.empty(); ++number) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        try {
            add_ini_line(settings, group, trimmed(line));
        } catch (const std::invalid_argument &error) {
            report(number, error.what());
        }
    }
    return settings;
}

Settings parse_toml(std::string_view text) {
    guard_toml(text);
    Settings settings;
    try {
        add_table(settings, "", toml::parse(text));
    } catch (const toml::parse_error &error) {
        report(error.source().begin.line, std::string(error.description()));
    }
    return settings;
}

Settings load_settings(const std::string &path) {
    const std::string text = read_whole_file(path);
    try {
        return path.ends_with(".toml") ? parse_toml(text) : parse_ini(text);
    } catch (const Failure &failure) {
        throw Failure(failure.code(), fmt::format("{}: {}", escape(path), failure.what()));
    }
}

} // namespace dtctl
