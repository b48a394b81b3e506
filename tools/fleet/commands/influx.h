// Values as lines of InfluxDB's protocol, which many databases of measurements take.
#pragma once

#include "fleet/store/store.h"

#include <string>

namespace dtfleet {

// One line, with its line feed; empty for a key that is gone. A number is a field "value", a string
// "text", a buffer "hex". Loses what the protocol cannot carry: databases keep 53 bits of a number,
// and a text is escaped.
std::string influx_line(const FlatValue &row, const std::string &device, const Series &series);

} // namespace dtfleet
