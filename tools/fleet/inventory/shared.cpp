#include "fleet/inventory/shared.h"

#include <fmt/format.h>

#include <utility>

namespace dtfleet {
namespace {

constexpr const char *in_database = "the inventory in the database";

std::string time_text(Seconds time) {
    return time == Seconds(0) ? "\"never\"" : fmt::format("\"{}s\"", time.count());
}

const char *keep_text(Keep keep) { return keep == Keep::all ? "\"all\"" : "\"changes\""; }

// Keys and values, a line each.
class Lines {
public:
    void begin(const char *table) { text_ += fmt::format("{}\n", table); }
    void put(const char *key, const std::string &value) {
        text_ += fmt::format("{} = {}\n", key, value);
    }
    template <typename Value, typename Text>
    void put(const char *key, const std::optional<Value> &value, Text text) {
        if (value) put(key, std::string(text(*value)));
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

const char *flag_text(bool flag) { return flag ? "true" : "false"; }

std::string number_text(uint64_t number) { return std::to_string(number); }

void put_retention(Lines &out, const Retention &retention) {
    out.begin("[retention]");
    out.put("age", time_text(retention.age));
    out.put("long_age", time_text(retention.long_age));
    out.put("size", retention.bytes, [](uint64_t size) { return fmt::format("\"{}\"", size); });
}

void put_group(Lines &out, const Group &group) {
    out.begin("[[group]]");
    out.put("name", quoted(group.name));
    out.put("interval", group.interval, time_text);
    out.put("selftest", group.selftest, time_text);
    out.put("keep", group.keep, keep_text);
    out.put("metrics", flag_text(group.metrics));
}

// Its times and what is kept are its own: whatever groups say, they are settled.
void put_device(Lines &out, const Device &device) {
    std::string groups;
    for (const std::string &group : device.groups)
        groups += (groups.empty() ? "" : ", ") + quoted(group);
    out.begin("[[device]]");
    out.put("name", quoted(device.name));
    out.put("address", quoted(device.address));
    out.put("port", number_text(device.port));
    out.put("groups", "[" + groups + "]");
    out.put("identity", device.identity, number_text);
    out.put("interval", time_text(device.interval));
    out.put("selftest", time_text(device.selftest));
    out.put("keep", keep_text(device.keep));
    out.put("command", number_text(device.command));
    out.put("enabled", flag_text(device.enabled));
}

void put_series(Lines &out, const SeriesMeaning &series) {
    out.begin("[[series]]");
    out.put("collector", quoted(series.collector));
    out.put("section", series.section, number_text);
    out.put("key", number_text(series.key));
    if (!series.name.empty()) out.put("name", quoted(series.name));
    if (!series.unit.empty()) out.put("unit", quoted(series.unit));
    out.put("signed", flag_text(series.is_signed));
    out.put("log", series.log, flag_text);
}

bool is_replanned(const Device &before, const Device &after) {
    return before.interval != after.interval || before.selftest != after.selftest ||
           before.enabled != after.enabled;
}

} // namespace

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            out.append(1, '\\').append(1, c);
        else if (byte < 0x20 || byte == 0x7F)
            out += fmt::format("\\u{:04x}", byte);
        else
            out += c;
    }
    return out + '"';
}

std::string shared_text(const Inventory &inventory) {
    Lines out;
    put_retention(out, inventory.retention);
    for (const Group &group : inventory.groups) put_group(out, group);
    for (const SeriesMeaning &series : inventory.series) put_series(out, series);
    for (const Device &device : inventory.devices) put_device(out, device);
    return out.take();
}

Loaded load_shared(const std::string &path) {
    return load_inventory(path, nullptr, Lists::anywhere);
}

Loaded load_shared_text(const std::string &text) {
    const Overlay overlay{in_database, text, in_database, {}};
    return load_inventory(in_database, &overlay, Lists::anywhere);
}

Inventory joined(Inventory own, Inventory shared) {
    own.retention = shared.retention;
    own.groups = std::move(shared.groups);
    own.devices = std::move(shared.devices);
    own.series = std::move(shared.series);
    return own;
}

// Both lists are sorted by name.
InventoryChanges changes_between(const Inventory &before, const Inventory &after) {
    InventoryChanges changes;
    changes.groups = before.groups != after.groups;
    changes.series = before.series != after.series;
    changes.retention = before.retention != after.retention;
    auto old = before.devices.begin();
    for (const Device &device : after.devices) {
        for (; old != before.devices.end() && old->name < device.name; ++old)
            changes.gone.push_back(old->name);
        if (old == before.devices.end() || old->name != device.name) {
            changes.added.push_back(device.name);
            continue;
        }
        if (*old != device) changes.changed.push_back(device.name);
        if (is_replanned(*old, device)) changes.replanned.push_back(device.name);
        ++old;
    }
    for (; old != before.devices.end(); ++old) changes.gone.push_back(old->name);
    return changes;
}

} // namespace dtfleet
