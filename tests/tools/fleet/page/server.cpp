// The page over a store in memory, for a browser: server DEVICES. Says its port, then does what
// standard input says: "fail NAME" lets a device fail.
#include "fleet/web/web.h"
#include "tools/fleet/shelf.h"

#include <cmath>
#include <iostream>

namespace {

using namespace dtfleet;

const std::string hostile =
    "</script><script>document.title='x'</script><img src=x onerror=alert(1)>";
using Type = dt::decode::Kind;

void put_devices(Shelf &shelf, int count) {
    for (int i = 0; i < count; ++i)
        shelf.devices.push_back(device(i + 1, "pump" + std::to_string(10'000 + i)));
    shelf.devices[0].name = hostile; // stands first in order, too
    shelf.devices[0].groups = {"hall", hostile};
    shelf.devices[1].last_ok = 1;
    shelf.devices[2].failures = 4;
    shelf.devices[2].last_outcome = Outcome::malformed;
    shelf.devices[2].last_reason = hostile;
    shelf.devices[3].paused_until = INT64_MAX;
    shelf.devices[4].is_listed = false;
    shelf.devices[4].groups = {"roof"};
}

StoredValue number(uint64_t value) { return {StoredValue::Form::number, value, ""}; }
StoredValue bytes(std::string text) { return {StoredValue::Form::bytes, 0, std::move(text)}; }

void put_values(Shelf &shelf, Microseconds time) {
    shelf.series = {{1, "pump", 0, 1, Type::int32, "speed", "1/min", false, false},
                    {2, hostile, 0, 2, Type::int64, hostile, hostile, true, false},
                    {3, "pump", 0, 3, Type::string, "", "", false, false},
                    {4, "pump", 0, 4, Type::int64, "", "", false, false},
                    {5, "pump", 0, 5, Type::string, "boots", "", false, true},
                    {6, "pump", 0, 6, Type::string, "", "", false, true}};
    shelf.latest = {{1, 1, 0, time, number(1420)},
                    {1, 2, 0, time, number(static_cast<uint64_t>(INT64_MIN))},
                    {1, 3, 0, time, bytes(hostile)},
                    {1, 3, 1, time, bytes(std::string("\0\xff", 2))},
                    {1, 4, 0, time, number(UINT64_MAX)},
                    {1, 4, 1, time, {}}};
    for (int i = 0; i < 1380; ++i) {
        const auto y = static_cast<uint64_t>(1400 + 90 * std::sin(i / 60.0));
        shelf.points.push_back({time - (1380 - i) * 60'000'000LL, 6, y - 20, y + 20, y});
    }
    shelf.points.back().last = 9'007'199'254'740'993; // more than a browser's number can tell
}

void put_history(Shelf &shelf, Microseconds time) {
    for (int i = 300; i > 0; --i) {
        RunRow row{i, {}};
        row.record.time = time - (300 - i) * 60'000'000LL;
        row.record.outcome = i % 7 == 0 ? Outcome::silent : Outcome::whole;
        row.record.reason = i % 7 == 0 ? hostile : "";
        row.record.kind = i % 100 == 0 ? Kind::selftest : Kind::collection;
        shelf.runs.push_back(row);
    }
    for (int i = 1; i <= 250; ++i)
        shelf.lines.push_back(
            {5, i, "11/23 09:00:00", i == 250 ? hostile : "motor starts", time, i == 249});
    shelf.faults = {{2, time, "pump", "run", "11/23 09:00:00", 0, hostile},
                    {1, time, hostile, "register", "", 7, "75"}};
}

void let_fail(Shelf &shelf, const std::string &name) {
    const std::lock_guard lock(shelf.mutex);
    for (DeviceState &one : shelf.devices)
        if (one.name == name) one.failures = 3;
    ++shelf.version;
}

} // namespace

int main(int, char **argv) {
    Shelf shelf;
    put_devices(shelf, std::stoi(argv[1]));
    put_values(shelf, wall_microseconds());
    put_history(shelf, wall_microseconds());
    Inventory inventory;
    inventory.web_bind = "127.0.0.1:0";
    inventory.limits.run = Seconds(600); // no device gets late meanwhile
    const Board board;
    Web web(inventory, "fleet.toml", board, [&] { return std::make_unique<Shelved>(shelf); });
    std::cout << web.port() << std::endl;
    for (std::string order, name; std::cin >> order >> name;) let_fail(shelf, name);
}
