// The store's rows as JSON for the page. Texts of devices are bytes: what is no UTF-8 stands as hex
// under a name of its own. 64-bit numbers are texts, because a browser's numbers are not exact.
#pragma once

#include "fleet/store/health.h"
#include "host/json_text.h"

#include <string>
#include <vector>

namespace dtfleet {

using Json = dtctl::Object;

constexpr size_t most_bytes_shown = 4096; // of a text; its whole size is told, too

std::string text_of(const Json &json);

Json json_of_row(const DeviceState &device, Health health); // a line of the list
Json json_of_device(const DeviceState &device, Health health);
Json json_of_series(const Series &series);
Json json_of_value(const LatestValue &value, const Series &series);
Json json_of_points(const std::vector<Point> &points, const Series &series);
Json json_of_run(const RunRow &run);
Json json_of_line(const LogLine &line);
Json json_of_fault(const FaultRow &fault);

} // namespace dtfleet
