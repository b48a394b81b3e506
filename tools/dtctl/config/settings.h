// The settings that a configuration server hands out: texts by group and key.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace dtctl {

class Settings {
public:
    // Throws std::invalid_argument, with a reason, for what no device could ask for or receive: a
    // group or key with a blank or longer than a request, anything with a zero byte, and the same
    // setting twice. Group and key may be empty.
    void add(const std::string &group, const std::string &key, const std::string &value);

    // null: not set. Valid as long as the settings.
    const std::string *find(const std::string &group, const std::string &key) const;

    size_t size() const { return size_; }

private:
    std::map<std::string, std::map<std::string, std::string>> groups_;
    size_t size_ = 0;
};

// Both throw Failure (broken) with the line and the reason.
//
// INI: "[group]", "key = value", comments behind ; or # at the beginning of a line, blanks around
// everything ignored; a value in double quotes keeps its blanks and loses the quotes, and there are
// no escapes. Keys before the first group belong to the group with the empty name; a key has a
// name.
Settings parse_ini(std::string_view text);

// TOML: a table is a group, with a dotted name where it lies in another one; keys outside of any
// table belong to the group with the empty name. Values are strings, integers (sent in decimal),
// floats (shortest form) and booleans (true, false). Beyond the limits of host/toml_guard.h a text
// is refused.
Settings parse_toml(std::string_view text);

// Reads a file, as TOML when its name ends in .toml, as INI otherwise. Throws Failure with the
// file's name.
Settings load_settings(const std::string &path);

} // namespace dtctl
