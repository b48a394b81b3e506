// Bytes as text that can be shown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dtctl {

// Length of the well-formed UTF-8 character at the front, 1 to 4; 0 when there is none.
size_t character_length(std::string_view text);

bool is_utf8(std::string_view bytes);

// Whether one well-formed UTF-8 character is a control character (C0, DEL or C1) or one that
// changes the order or the lines in which others are shown (U+2028, U+2029, bidirectional
// controls).
bool is_control(std::string_view character);

// Whether the bytes are UTF-8 without control characters other than tab and line feed.
bool is_plain_text(std::string_view bytes);

// One line that no terminal stumbles over and that can be read back without loss: UTF-8 as it is,
// a backslash doubled, \n \r \t, and \xNN for each byte of a control character or of what is
// no UTF-8.
std::string escape(std::string_view bytes);

// Two lower-case digits a byte.
std::string hex(std::string_view bytes);

// A number of 4 or 8 bytes in decimal; with the top bit set, the signed reading behind it in
// brackets. What is meant nobody says, but most often it is a negative number.
std::string signed_too(uint64_t number, size_t bytes);

// JSON as a serialiser writes it, with control characters above U+001F as \uNNNN: they occur
// nowhere but in its texts.
std::string escape_json(std::string_view json);

// What becomes of a text in CSV that a spreadsheet would take for a formula: one that begins with
// "=", "+", "-", "@" or a tab.
enum class Cells {
    guarded, // a "'" stands before it, and before a text that begins with one, which so can be told
    raw,
};

// A CSV field, quoted where RFC 4180 asks for it.
std::string csv_field(const std::string &text, Cells cells);

// Two CSV fields, encoding and value: plain text as it is, any other bytes as hex.
std::string csv_text(const std::string &bytes, Cells cells);

} // namespace dtctl
