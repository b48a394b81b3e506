// Texts as the database takes them.
#pragma once

#include "host/text.h"

#include <string>
#include <string_view>

namespace dtfleet::postgres {

// A text of the database has neither a NUL nor anything that is no UTF-8. What is such a text
// stays as it is; anything else is shown escaped.
inline std::string shown(std::string_view bytes) {
    const bool is_text = dtctl::is_utf8(bytes) && bytes.find('\0') == std::string_view::npos;
    return is_text ? std::string(bytes) : dtctl::escape(bytes);
}

} // namespace dtfleet::postgres
