#include "host/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace dtctl {
namespace {

// What may follow a first byte: how long the character is, and the range of its second byte. The
// narrow ranges keep out overlong forms, surrogates and what lies beyond U+10FFFF.
struct Lead {
    uint8_t first, last;
    uint8_t length;
    uint8_t low, high;
};

constexpr Lead leads[] = {
    {0x00, 0x7F, 1, 0x00, 0x00}, {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

struct Codes {
    uint32_t first, last;
};

constexpr Codes controls[] = {
    {0x0000, 0x001F}, {0x007F, 0x009F}, {0x061C, 0x061C},
    {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069},
};

uint8_t at(std::string_view text, size_t i) { return static_cast<uint8_t>(text[i]); }

// Of one well-formed character: what its first byte leaves for it, then six bits a byte.
uint32_t code_point(std::string_view character) {
    uint32_t code = at(character, 0);
    if (character.size() > 1) code &= 0x7FU >> character.size();
    for (size_t i = 1; i < character.size(); ++i) code = code << 6 | (at(character, i) & 0x3FU);
    return code;
}

bool within(uint8_t byte, uint8_t low, uint8_t high) { return byte >= low && byte <= high; }

void append_hex(std::string &out, std::string_view prefix, std::string_view bytes) {
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(out), "{}{:02x}", prefix, static_cast<uint8_t>(byte));
    }
}

void append_escaped(std::string &out, std::string_view character) {
    switch (character[0]) {
    case '\\':
        out += "\\\\";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        break;
    }
    if (is_control(character)) {
        append_hex(out, "\\x", character);
    } else {
        out += character;
    }
}

} // namespace

size_t character_length(std::string_view text) {
    if (text.empty()) return 0;
    const auto lead = std::find_if(std::begin(leads), std::end(leads), [&](const Lead &candidate) {
        return within(at(text, 0), candidate.first, candidate.last);
    });
    if (lead == std::end(leads) || text.size() < lead->length) return 0;
    if (lead->length > 1 && !within(at(text, 1), lead->low, lead->high)) return 0;
    for (size_t i = 2; i < lead->length; ++i) {
        if (!within(at(text, i), 0x80, 0xBF)) return 0;
    }
    return lead->length;
}

bool is_utf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t length = character_length(bytes);
        if (length == 0) return false;
        bytes.remove_prefix(length);
    }
    return true;
}

bool is_control(std::string_view character) {
    const uint32_t code = code_point(character);
    return std::any_of(std::begin(controls), std::end(controls), [&](const Codes &range) {
        return code >= range.first && code <= range.last;
    });
}

bool is_plain_text(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t length = character_length(bytes);
        if (length == 0) return false;
        const std::string_view character = bytes.substr(0, length);
        const bool blank = character == "\t" || character == "\n";
        if (is_control(character) && !blank) return false;
        bytes.remove_prefix(length);
    }
    return true;
}

std::string escape(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const size_t length = character_length(bytes);
        if (length == 0) {
            append_hex(out, "\\x", bytes.substr(0, 1));
        } else {
            append_escaped(out, bytes.substr(0, length));
        }
        bytes.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

std::string hex(std::string_view bytes) {
    std::string out;
    out.reserve(2 * bytes.size());
    append_hex(out, "", bytes);
    return out;
}

std::string signed_too(uint64_t number, size_t bytes) {
    const int64_t as_signed = bytes == sizeof(uint32_t)
                                  ? static_cast<int32_t>(static_cast<uint32_t>(number))
                                  : static_cast<int64_t>(number);
    if (as_signed >= 0) return fmt::format("{}", number);
    return fmt::format("{} ({})", number, as_signed);
}

std::string escape_json(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    while (!json.empty()) {
        const size_t length = std::max<size_t>(character_length(json), 1);
        const std::string_view character = json.substr(0, length);
        if (is_control(character)) {
            fmt::format_to(std::back_inserter(out), "\\u{:04x}", code_point(character));
        } else {
            out += character;
        }
        json.remove_prefix(length);
    }
    return out;
}

std::string csv_field(const std::string &text, Cells cells) {
    const bool guard = cells == Cells::guarded && text.find_first_of("=+-@'\t") == 0;
    std::string cell = guard ? '\'' + text : text;
    if (cell.find_first_of(",\"\r\n") == std::string::npos) return cell;
    std::string quoted = "\"";
    for (const char c : cell) quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

std::string csv_text(const std::string &bytes, Cells cells) {
    return is_plain_text(bytes) ? "text," + csv_field(bytes, cells) : "hex," + hex(bytes);
}

} // namespace dtctl
