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

// A control character (C0, DEL or C1) as one well-formed UTF-8 character.
bool is_control(std::string_view character);

// Whether the bytes are UTF-8 without control characters other than tab and line breaks.
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

// A CSV field, quoted where RFC 4180 asks for it.
std::string csv_field(const std::string &text);

// Two CSV fields, encoding and value: plain text as it is, any other bytes as hex.
std::string csv_text(const std::string &bytes);

} // namespace dtctl
