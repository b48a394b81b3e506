// Bytes in JSON, which knows texts in UTF-8 only.
#pragma once

#include "host/text.h"

#include <nlohmann/json.hpp>

#include <string>

namespace dtctl {

using Object = nlohmann::ordered_json; // keeps the order of its members

// Adds bytes under one name when they are UTF-8, and as hex under the other when not.
inline void add_text(Object &object, const char *name, const char *hex_name,
                     const std::string &bytes) {
    if (is_utf8(bytes)) {
        object[name] = bytes;
    } else {
        object[hex_name] = hex(bytes);
    }
}

inline std::string text_of(const Object &object) { return escape_json(object.dump()); }

} // namespace dtctl
