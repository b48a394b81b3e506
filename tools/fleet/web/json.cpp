#include "fleet/web/json.h"

#include "host/text.h"

#include <fmt/format.h>

namespace dtfleet {
namespace {

using Type = dt::decode::Kind;

// Never ends inside a character.
std::string cut(const std::string &bytes) {
    if (bytes.size() <= most_bytes_shown) return bytes;
    size_t end = most_bytes_shown;
    while (end > most_bytes_shown - 4 && (bytes[end] & 0xC0) == 0x80) --end;
    return bytes.substr(0, end);
}

void add_bytes(Json &json, const char *name, const std::string &bytes) {
    const std::string hex_name = std::string(name) + "Hex";
    dtctl::add_text(json, name, hex_name.c_str(), cut(bytes));
    if (bytes.size() > most_bytes_shown) json["size"] = bytes.size();
}

std::string identity_text(uint16_t identity) { return fmt::format("{:04X}", identity); }

constexpr const char *type_names[] = {"", "int32", "int64", "string", "buffer"};

int64_t as_signed(uint64_t number, Type type) {
    return type == Type::int32 ? static_cast<int32_t>(static_cast<uint32_t>(number))
                               : static_cast<int64_t>(number);
}

std::string number_text(uint64_t number, const Series &series) {
    return series.is_signed ? std::to_string(as_signed(number, series.type))
                            : std::to_string(number);
}

void add_number(Json &json, uint64_t number, const Series &series) {
    json["number"] = number_text(number, series);
    const int64_t other = as_signed(number, series.type);
    // Nobody has said what it means: most often it is a negative number.
    if (!series.is_signed && series.name.empty() && other < 0)
        json["signed"] = std::to_string(other);
}

void add_value(Json &json, const StoredValue &value, const Series &series) {
    switch (value.form) {
    case StoredValue::Form::number:
        return add_number(json, value.number, series);
    case StoredValue::Form::bytes:
        return add_bytes(json, "text", value.bytes);
    case StoredValue::Form::gone:
        json["gone"] = true;
    }
}

// What is not empty.
void add_filled(Json &json, const char *name, const std::string &bytes) {
    if (!bytes.empty()) add_bytes(json, name, bytes);
}

} // namespace

std::string text_of(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json json_of_row(const DeviceState &device, Health health) {
    Json json{{"name", device.name},        {"state", text_of(health)},
              {"groups", device.groups},    {"lastOk", device.last_ok},
              {"lastTry", device.last_try}, {"duration", device.last_duration}};
    if (device.failures != 0) {
        json["failures"] = device.failures;
        json["outcome"] = text_of(device.last_outcome);
    }
    return json;
}

Json json_of_device(const DeviceState &device, Health health) {
    Json json = json_of_row(device, health);
    json["address"] = device.address;
    json["port"] = device.port;
    json["interval"] = device.interval.count();
    if (device.paused_until != 0) json["pausedUntil"] = device.paused_until;
    if (device.identity_expected)
        json["identityExpected"] = identity_text(*device.identity_expected);
    if (device.identity_seen) json["identitySeen"] = identity_text(*device.identity_seen);
    add_filled(json, "addressSeen", device.address_seen);
    add_filled(json, "reason", device.last_reason);
    return json;
}

Json json_of_series(const Series &series) {
    Json json{{"series", series.id},
              {"section", series.section},
              {"key", series.key},
              {"type", type_names[static_cast<size_t>(series.type) % std::size(type_names)]}};
    add_bytes(json, "collector", series.collector);
    add_filled(json, "name", series.name);
    add_filled(json, "unit", series.unit);
    return json;
}

Json json_of_value(const LatestValue &value, const Series &series) {
    Json json = json_of_series(series);
    json["ordinal"] = value.ordinal;
    json["time"] = value.time;
    add_value(json, value.value, series);
    return json;
}

Json json_of_points(const std::vector<Point> &points, const Series &series) {
    Json json{{"series", series.id},  {"time", Json::array()}, {"min", Json::array()},
              {"max", Json::array()}, {"last", Json::array()}, {"count", Json::array()}};
    for (const Point &point : points) {
        json["time"].push_back(point.time);
        json["min"].push_back(number_text(point.min, series));
        json["max"].push_back(number_text(point.max, series));
        json["last"].push_back(number_text(point.last, series));
        json["count"].push_back(point.count);
    }
    return json;
}

Json json_of_run(const RunRow &row) {
    const RunRecord &run = row.record;
    Json json{{"collection", row.collection},
              {"run", id_text(run.id)},
              {"kind", run.kind == Kind::selftest ? "selftest" : "collection"},
              {"command", run.command},
              {"outcome", text_of(run.outcome)},
              {"time", run.time},
              {"toConnect", run.to_connect},
              {"toOpening", run.to_opening},
              {"toEnd", run.to_end},
              {"resends", run.resends},
              {"messages", run.messages},
              {"bytes", run.bytes}};
    if (run.identity) json["identity"] = identity_text(*run.identity);
    add_filled(json, "reason", run.reason);
    add_filled(json, "address", run.address);
    return json;
}

Json json_of_line(const LogLine &line) {
    Json json{{"seq", line.seq}, {"time", line.time}};
    if (line.gap_before) json["gap"] = true;
    add_bytes(json, "stamp", line.stamp);
    add_bytes(json, "text", line.text);
    return json;
}

Json json_of_fault(const FaultRow &fault) {
    Json json{{"id", fault.id}, {"passTime", fault.pass_time}, {"kind", fault.kind}};
    const bool is_line = fault.kind == "init" || fault.kind == "run";
    if (!is_line) json["valueId"] = fault.value_id;
    add_bytes(json, "fault", fault.fault);
    add_filled(json, "stamp", fault.stamp);
    add_bytes(json, "value", fault.value);
    return json;
}

} // namespace dtfleet
