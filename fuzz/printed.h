// What dtctl prints, in each of its forms, of bytes that may be anything.
#pragma once

#include "input.h"

#include "dtctl/output/output.h"
#include "tools/dtctl/outcome.h"

#include <nlohmann/json.hpp>
#include <sstream>

// Nothing that a terminal obeys, except what is passed: control characters, U+2028, U+2029 and
// those that change the direction.
inline void check_text(const std::string &text, const char *passed) {
    for (size_t i = 0; i < text.size(); ++i) {
        const uint8_t byte = static_cast<uint8_t>(text[i]),
                      next = static_cast<uint8_t>(text[i + 1]);
        assert((byte >= ' ' && byte != 0x7F) || strchr(passed, byte));
        assert(byte != 0xC2 || next >= 0xA0);
    }
    for (const char *forbidden : {"\u2028", "\u2029", "\u202A", "\u202E", "\u2066", "\u2069"})
        assert(text.find(forbidden) == text.npos);
}

inline void check_csv(const std::string &text) {
    size_t all = 0, commas = 0;
    bool quoted = false;
    for (const char c : text) {
        quoted ^= c == '"';
        commas += c == ',' && !quoted;
        if (c != '\n' || quoted) continue;
        assert(all == 0 || commas == all);
        all = std::exchange(commas, 0);
    }
    assert(!quoted && commas == 0);
}

inline void check_printed(dtctl::Format format, const std::string &text) {
    check_text(text, format == dtctl::Format::csv ? "\n\t" : "\n");
    if (format == dtctl::Format::csv) check_csv(text);
    std::istringstream lines(format == dtctl::Format::json ? text : "");
    for (std::string line; std::getline(lines, line);) assert(nlohmann::json::accept(line));
}

template <typename Print> void check_all_forms(Print print) {
    for (const auto format : {dtctl::Format::table, dtctl::Format::json, dtctl::Format::csv}) {
        dtctl::OutputOptions options;
        options.format = format;
        options.times = true;
        check_printed(format, outcome_of([&](FILE *out) { print(options, out); }).output);
    }
}
