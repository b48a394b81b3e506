// The page's files, as the build makes them of page/ and vendor/.
#pragma once

#include <string_view>

namespace dtfleet {

extern const std::string_view page_index;
extern const std::string_view page_style;
extern const std::string_view page_common;
extern const std::string_view page_fleet;
extern const std::string_view page_device;
extern const std::string_view page_chart;
extern const std::string_view page_main;
extern const std::string_view page_icon;
extern const std::string_view uplot_script;
extern const std::string_view uplot_style;

} // namespace dtfleet
