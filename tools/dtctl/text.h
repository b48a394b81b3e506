// Bytes as text that can be shown.
#pragma once

#include <cstddef>
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

} // namespace dtctl
