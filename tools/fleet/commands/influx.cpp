#include "fleet/commands/influx.h"

#include "fleet/store/number.h"
#include "host/text.h"

#include <fmt/format.h>

#include <string_view>

namespace dtfleet {
namespace {

// A backslash in front of a separator would change its meaning, and has no escape of its own.
std::string tag(const char *name, const std::string &text) {
    if (text.empty()) return "";
    std::string out = fmt::format(",{}=", name);
    for (const char c : dtctl::escape(text)) {
        if (std::string_view(", =").find(c) != std::string_view::npos) out += '\\';
        out += c == '\\' ? '_' : c;
    }
    return out;
}

std::string number_tag(const char *name, uint32_t number) {
    return number == 0 ? "" : fmt::format(",{}={}", name, number);
}

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) out.append(c == '"' || c == '\\' ? "\\" : "").append(1, c);
    return out + '"';
}

std::string field(const Series &series, const StoredValue &value) {
    if (value.form == StoredValue::Form::number)
        return "value=" + (series.is_signed
                               ? std::to_string(signed_number(value.number, series.type))
                               : std::to_string(value.number));
    if (series.type == dt::decode::Kind::string)
        return "text=" + quoted(dtctl::escape(value.bytes));
    return "hex=" + quoted(dtctl::hex(value.bytes));
}

} // namespace

std::string influx_line(const FlatValue &row, const std::string &device, const Series &series) {
    if (row.value.form == StoredValue::Form::gone) return "";
    return fmt::format("dt{}{}{},key={}{}{}{} {} {}000\n", tag("device", device),
                       tag("collector", series.collector), number_tag("section", series.section),
                       series.key, number_tag("ordinal", row.ordinal), tag("name", series.name),
                       number_tag("command", row.command), field(series, row.value), row.time);
}

} // namespace dtfleet
