// Rows of the tables that both databases have: the columns in the order in which they are asked
// for, and what they make. A Row tells of a column its number, its bytes or that it is NULL.
#pragma once

#include "decode/wire.h"
#include "fleet/store/fields.h"

#include <optional>
#include <string>

namespace dtfleet {

template <typename Row> std::optional<uint16_t> identity_in(const Row &row, int column) {
    if (row.is_null(column)) return std::nullopt;
    return static_cast<uint16_t>(row.number(column));
}

constexpr const char *select_devices =
    "SELECT id, name, address, port, groups, interval, listed, identity_expected, identity_seen, "
    "address_seen, paused_until, last_try, last_ok, failures, last_outcome, last_reason, "
    "last_duration, identity_listed FROM device WHERE name IS NOT NULL ";
template <typename Row> DeviceState device_in(const Row &row) {
    DeviceState device;
    device.id = row.number(0);
    device.name = row.bytes(1);
    device.address = row.bytes(2);
    device.port = static_cast<uint16_t>(row.number(3));
    device.groups = groups_of(row.bytes(4));
    device.interval = Seconds(row.number(5));
    device.is_listed = row.number(6) != 0;
    device.identity_expected = identity_in(row, 7);
    device.identity_seen = identity_in(row, 8);
    device.address_seen = row.bytes(9);
    device.paused_until = row.number(10);
    device.last_try = row.number(11);
    device.last_ok = row.number(12);
    device.failures = static_cast<uint32_t>(row.number(13));
    device.last_outcome = outcome_of(row.number(14));
    device.last_reason = row.bytes(15);
    device.last_duration = static_cast<uint32_t>(row.number(16));
    device.identity_listed = identity_in(row, 17);
    return device;
}

constexpr const char *select_series =
    "SELECT id, collector, section, key, type, name, unit, signed, log FROM series ";
template <typename Row> Series series_in(const Row &row) {
    Series series;
    series.id = row.number(0);
    series.collector = row.bytes(1);
    series.section = static_cast<uint32_t>(row.number(2));
    series.key = static_cast<uint32_t>(row.number(3));
    series.type = type_of(row.number(4));
    series.name = row.bytes(5);
    series.unit = row.bytes(6);
    series.is_signed = row.number(7) != 0;
    series.is_log = row.number(8) != 0;
    return series;
}

// Entries that cannot be read are left out; the next run writes them anew.
constexpr const char *select_states = "SELECT command, time, full_day, hour, entries FROM state ";
template <typename Row> CommandState state_in(const Row &row) {
    State state{row.number(1), row.number(2), row.number(3), {}};
    if (!unpack(row.bytes(4), state)) state.entries.clear();
    return {static_cast<uint32_t>(row.number(0)), std::move(state)};
}

constexpr const char *select_runs =
    "SELECT id, run, time, command, outcome, reason, identity, address, messages, bytes, resends, "
    "to_connect, to_opening, to_end FROM collection ";
template <typename Row> RunRow run_in(const Row &row) {
    RunRow found;
    found.collection = row.number(0);
    RunRecord &run = found.record;
    run.id = run_id(row.bytes(1));
    run.time = row.number(2);
    run.command = static_cast<uint32_t>(row.number(3));
    const bool is_selftest = run.command == dt::decode::wire::selftest_command;
    run.kind = is_selftest ? Kind::selftest : Kind::collection;
    run.outcome = outcome_of(row.number(4));
    run.reason = row.bytes(5);
    run.identity = identity_in(row, 6);
    run.address = row.bytes(7);
    run.messages = static_cast<uint32_t>(row.number(8));
    run.bytes = static_cast<uint64_t>(row.number(9));
    run.resends = static_cast<uint32_t>(row.number(10));
    run.to_connect = static_cast<uint32_t>(row.number(11));
    run.to_opening = static_cast<uint32_t>(row.number(12));
    run.to_end = static_cast<uint32_t>(row.number(13));
    return found;
}

constexpr const char *select_lines = "SELECT series, seq, stamp, text, time, gap_before FROM log ";
template <typename Row> LogLine line_in(const Row &row) {
    return {row.number(0), row.number(1),     std::string(row.bytes(2)), std::string(row.bytes(3)),
            row.number(4), row.number(5) != 0};
}

constexpr const char *select_faults =
    "SELECT id, pass_time, fault, kind, stamp, value_id, value FROM fault ";
template <typename Row> FaultRow fault_in(const Row &row) {
    return {row.number(0),
            row.number(1),
            std::string(row.bytes(2)),
            std::string(row.bytes(3)),
            std::string(row.bytes(4)),
            static_cast<uint32_t>(row.number(5)),
            std::string(row.bytes(6))};
}

} // namespace dtfleet
