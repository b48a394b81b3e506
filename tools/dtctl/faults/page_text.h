// The page before and behind its data, as the build makes it of page/.
#pragma once

#include <string_view>

namespace dtctl {

extern const std::string_view fault_page_head;
extern const std::string_view fault_page_tail;

} // namespace dtctl
