#include "fleet/commands/moment.h"

#include "fleet/engine/time.h"
#include "fleet/inventory/inventory.h"

#include <fmt/format.h>

#include <cstring>
#include <ctime>

namespace dtfleet {
namespace {

constexpr Microseconds second = 1'000'000;

// The 31st of February is no day, though timegm takes it for one of March.
std::optional<Microseconds> parse_date(const std::string &text) {
    for (const char *format : {"%Y-%m-%d", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S"}) {
        std::tm parts{};
        const char *end = ::strptime(text.c_str(), format, &parts);
        if (!end || (std::strcmp(end, "") != 0 && std::strcmp(end, "Z") != 0)) continue;
        const int day = parts.tm_mday;
        const std::time_t time = ::timegm(&parts);
        if (parts.tm_mday == day && parts.tm_year >= 70) return time * second;
    }
    return std::nullopt;
}

} // namespace

std::optional<Microseconds> parse_moment(std::string_view text, Way way, Microseconds now) {
    if (text == "now") return now;
    if (const auto length = parse_duration(text))
        return now + (way == Way::back ? -1 : 1) * length->count() * second;
    return parse_date(std::string(text));
}

dtctl::Option add_moment(dtctl::Command &command, const char *name, Microseconds &moment, Way way,
                         const std::string &help) {
    const auto take = [&moment, way](const std::string &text) -> std::string {
        const auto parsed = parse_moment(text, way, wall_microseconds());
        if (!parsed) return fmt::format("'{}' is no time: 2026-01-31T08:15 (UTC), 2h or now", text);
        moment = *parsed;
        return "";
    };
    return command.parsed(name, "TIME", take, help);
}

} // namespace dtfleet
