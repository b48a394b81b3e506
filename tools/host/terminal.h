// What a terminal shows that a file does not.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace dtctl {

// Whether colours are welcome: on a terminal, unless NO_COLOR is set or it knows none.
bool shows_colours(std::FILE *out);

// The text in bold letters, or in faint ones.
std::string bold(std::string_view text);
std::string faint(std::string_view text);

} // namespace dtctl
