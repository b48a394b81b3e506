#include "fleet/inventory/inventory.h"

#include "fleet/inventory/table.h"
#include "fleet/inventory/web_settings.h"
#include "host/failure.h"
#include "host/file.h"
#include "host/toml_guard.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <tuple>

namespace dtfleet {
namespace {

constexpr auto longest_duration = Seconds(int64_t{10} * 366 * 24 * 3600);

constexpr size_t most_toml = size_t{64} << 20; // bytes, of half a million devices

struct Unit {
    std::string_view name;
    int64_t factor;
};

constexpr Unit time_units[] = {{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86'400}};
constexpr Unit size_units[] = {
    {"", 1}, {"kB", 1000}, {"MB", 1'000'000}, {"GB", 1'000'000'000}, {"TB", 1'000'000'000'000}};

// A number and, right behind it, one of the units; nothing for anything else and above most.
template <size_t N>
std::optional<int64_t> measured(std::string_view text, const Unit (&units)[N], int64_t most) {
    int64_t count = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || count < 0) return std::nullopt;
    for (const Unit &unit : units)
        if (unit.name == std::string_view(rest, static_cast<size_t>(end - rest)) &&
            count <= most / unit.factor)
            return count * unit.factor;
    return std::nullopt;
}

std::optional<Seconds> shorter(std::optional<Seconds> a, std::optional<Seconds> b) {
    return a && b ? std::min(a, b) : a ? a : b;
}

// A device as it was read; what its groups say is filled in when all files are known.
struct Entry {
    Device device;
    std::optional<Seconds> interval;
    std::optional<Seconds> selftest;
    std::optional<Keep> keep;
    std::string file;
    size_t line;
};

class Loader {
public:
    explicit Loader(Loaded &loaded, const Overlay *overlay = nullptr, Lists lists = Lists::anywhere)
        : loaded_(loaded), inventory_(loaded.inventory), overlay_(overlay), lists_(lists) {}

    void load_settings(const std::string &path) {
        settings_alone_ = true;
        read_file(path, true);
    }

    void load(const std::string &path) {
        read_file(path, true);
        if (overlay_) read_file(overlay_->file, false);
        for (Entry &entry : entries_) finish(entry);
        std::stable_sort(entries_.begin(), entries_.end(), [](const Entry &a, const Entry &b) {
            return a.device.name < b.device.name;
        });
        check_duplicates();
        for (Entry &entry : entries_) inventory_.devices.push_back(std::move(entry.device));
        if (inventory_.announce == 0) inventory_.announce = inventory_.listen;
    }

private:
    std::string text_of(const std::string &path, Source &source);
    void read_file(const std::string &path, bool main);
    void read_fleet(Table &top);
    void read_web(Table web);
    void check_web(Table &web);
    void read_limits(Table limits);
    void read_retention(Table retention);
    void read_lists(Table &top);
    void refuse_shared(Table &top, std::initializer_list<const char *> keys);
    void read_group(Table group);
    void read_device(Table device);
    void read_series(Table series);
    void include(Table &top, const std::string &pattern);
    void include_one(Table &top, const std::string &path);
    bool is_overlaid(const std::string &path) const;
    std::optional<Keep> keep(Table &table);
    void finish(Entry &entry);
    void check_duplicates();
    void complain(const Entry &entry, const std::string &text) {
        Source(entry.file, loaded_.complaints).complain(entry.line, text);
    }

    Loaded &loaded_;
    Inventory &inventory_;
    const Overlay *overlay_; // not read yet
    const Lists lists_;
    bool settings_alone_ = false;
    Seconds interval_{60};
    Seconds selftest_{0};
    Keep keep_ = Keep::changes;
    std::map<std::string, size_t, std::less<>> group_places_;
    std::vector<Entry> entries_;
};

// Neither need be there yet.
bool Loader::is_overlaid(const std::string &path) const {
    namespace fs = std::filesystem;
    std::error_code error;
    const auto place_of = [&](const std::string &file) {
        return fs::weakly_canonical(fs::absolute(file, error), error);
    };
    return overlay_ && (path == overlay_->file || place_of(path) == place_of(overlay_->file));
}

std::string Loader::text_of(const std::string &path, Source &source) {
    if (!is_overlaid(path)) return dtctl::read_whole_file(path, most_toml);
    source.was_made_from(overlay_->origin, overlay_->lines);
    return std::exchange(overlay_, nullptr)->text;
}

void Loader::read_file(const std::string &path, bool main) {
    Source source(path, loaded_.complaints);
    try {
        const std::string text = text_of(path, source);
        dtctl::guard_toml(text, {.size = most_toml});
        const toml::table parsed = toml::parse(text);
        Table top(parsed, source);
        if (main) read_fleet(top);
        if (settings_alone_) return;
        if (main)
            for (const std::string &pattern : top.texts("include")) include(top, pattern);
        read_lists(top);
        top.finish();
    } catch (const toml::parse_error &error) {
        source.complain(error.source().begin.line, std::string(error.description()));
    } catch (const dtctl::Failure &failure) {
        const bool is_unread = failure.code() == dtctl::Exit::failed;
        if (main) loaded_.is_read = !is_unread;
        source.complain(0,
                        is_unread ? failure.what() : fmt::format("{}: {}", path, failure.what()));
    }
}

std::optional<Keep> Loader::keep(Table &table) {
    const auto text = table.text("keep");
    if (!text) return std::nullopt;
    if (*text == "changes") return Keep::changes;
    if (*text == "all") return Keep::all;
    table.complain("keep", "must be \"changes\" or \"all\"");
    return std::nullopt;
}

void Loader::read_fleet(Table &top) {
    if (const auto text = top.name("database")) inventory_.database = *text;
    if (inventory_.database.find("://") != std::string::npos && !is_address(inventory_.database))
        top.complain("database", "must be a file, or an address \"postgresql://...\"");
    if (const auto text = top.name("control")) inventory_.control = *text;
    if (const auto port = top.number("listen", 0, UINT16_MAX))
        inventory_.listen = static_cast<uint16_t>(*port);
    if (const auto port = top.number("announce", 1, UINT16_MAX))
        inventory_.announce = static_cast<uint16_t>(*port);
    interval_ = top.duration("interval").value_or(interval_);
    selftest_ = top.duration("selftest", true).value_or(selftest_);
    keep_ = keep(top).value_or(keep_);
    inventory_.outage_grace = top.duration("outage_grace", true).value_or(inventory_.outage_grace);
    inventory_.spool = top.size("spool").value_or(inventory_.spool);
    refuse_shared(top, {"interval", "selftest", "keep", "retention"});
    if (auto web = top.table("web")) read_web(*web);
    if (auto limits = top.table("limits")) read_limits(*limits);
    if (auto retention = top.table("retention")) read_retention(*retention);
}

void Loader::read_web(Table web) {
    if (const auto text = web.text("bind")) inventory_.web_bind = *text;
    if (const auto text = web.name("token")) inventory_.web_token = *text;
    inventory_.web_hosts = web.texts("hosts");
    check_web(web);
    web.finish();
}

void Loader::check_web(Table &web) {
    const auto check = [&](const char *key, const auto &settle) {
        try {
            settle();
        } catch (const dtctl::Failure &failure) {
            web.complain(key, failure.what());
        }
    };
    const std::string &file = web.source().file();
    if (!inventory_.web_bind.empty()) check("bind", [&] { (void)web_address(inventory_); });
    // Whoever may not read the token cannot say either whether it is good.
    const std::string token = beside(file, inventory_.web_token);
    if (::access(token.c_str(), R_OK) == 0 || errno != EACCES)
        check("token", [&] { (void)web_token(inventory_, file); });
}

void Loader::read_limits(Table limits) {
    Limits &out = inventory_.limits;
    const auto count = [&](const char *key, size_t &value, int64_t most) {
        if (const auto number = limits.number(key, 1, most)) value = static_cast<size_t>(*number);
    };
    const auto size = [&](const char *key, size_t &value) {
        if (const auto number = limits.size(key)) value = *number;
    };
    out.silence = limits.duration("silence").value_or(out.silence);
    out.run = limits.duration("run").value_or(out.run);
    size("value", out.value_bytes);
    size("bytes", out.run_bytes);
    count("series", out.run_series, 1'000'000);
    count("waiting", out.waiting, 100'000);
    count("open", out.open, 100'000);
    count("subnet", out.per_subnet, 100'000);
    count("subnet_waiting", out.waiting_per_subnet, 100'000);
    limits.finish();
}

void Loader::read_retention(Table retention) {
    Retention &out = inventory_.retention;
    out.age = retention.duration("age", true).value_or(out.age);
    out.long_age = retention.duration("long_age", true).value_or(out.long_age);
    out.bytes = retention.size("size");
    retention.finish();
}

void Loader::refuse_shared(Table &top, std::initializer_list<const char *> keys) {
    if (lists_ == Lists::anywhere || !is_address(inventory_.database)) return;
    for (const char *key : keys)
        if (top.has(key))
            top.complain(key, "has no place beside a database on a server: `dtfleet import` takes "
                              "it from a file into that database, for all collectors");
}

// What included files may hold, too.
void Loader::read_lists(Table &top) {
    refuse_shared(top, {"group", "device", "series"});
    for (Table &group : top.tables("group")) read_group(group);
    for (Table &device : top.tables("device")) read_device(device);
    for (Table &series : top.tables("series")) read_series(series);
}

void Loader::read_group(Table group) {
    Group read;
    const auto name = group.name("name");
    if (!name) group.complain("a group needs a name");
    read.name = name.value_or("");
    read.interval = group.duration("interval");
    read.selftest = group.duration("selftest", true);
    read.keep = keep(group);
    read.metrics = group.flag("metrics").value_or(false);
    const bool is_new = group_places_.emplace(read.name, inventory_.groups.size()).second;
    if (name && !is_new) group.complain(fmt::format("there is another group \"{}\"", *name));
    group.finish();
    inventory_.groups.push_back(std::move(read));
}

void Loader::read_device(Table device) {
    Entry entry;
    const auto name = device.name("name");
    const auto address = device.text("address");
    if (!name || !address) device.complain("a device needs a name and an address");
    entry.device.name = name.value_or("");
    entry.device.address = address.value_or("");
    if (address && inet_pton(AF_INET, address->c_str(), &entry.device.ip) != 1)
        device.complain("address", "must be an IPv4 address like \"192.168.1.20\"");
    entry.device.port = static_cast<uint16_t>(device.number("port", 1, UINT16_MAX).value_or(9099));
    entry.device.groups = device.texts("groups");
    entry.device.command = static_cast<uint32_t>(device.number("command", 0, 2).value_or(0));
    entry.device.enabled = device.flag("enabled").value_or(true);
    if (const auto number = device.number("identity", 0, UINT16_MAX))
        entry.device.identity = static_cast<uint16_t>(*number);
    entry.interval = device.duration("interval");
    entry.selftest = device.duration("selftest", true);
    entry.keep = keep(device);
    entry.file = device.source().file();
    entry.line = device.source().line_of(device.line());
    device.finish();
    entries_.push_back(std::move(entry));
}

void Loader::read_series(Table series) {
    SeriesMeaning read;
    const auto collector = series.text("collector");
    const auto key = series.number("key", 0, UINT32_MAX);
    if (!collector || !key) series.complain("a series needs a collector and a key");
    read.collector = collector.value_or("");
    read.key = static_cast<uint32_t>(key.value_or(0));
    if (const auto section = series.number("section", 0, UINT32_MAX))
        read.section = static_cast<uint32_t>(*section);
    read.name = series.name("name").value_or("");
    read.unit = series.name("unit").value_or("");
    read.is_signed = series.flag("signed").value_or(false);
    read.log = series.flag("log");
    series.finish();
    inventory_.series.push_back(std::move(read));
}

// In the order of their names; a pattern without a match is none to complain about, an empty
// directory is as good as no devices. What is there and cannot be read, or is called by its name
// and is not there, must not pass for a fleet without these devices.
void Loader::include(Table &top, const std::string &pattern) {
    const std::string path = beside(top.source().file(), pattern);
    if (pattern.find_first_of("*?[") == std::string::npos) return include_one(top, path);
    const auto is_serious = [](const char *, int error) { return error == ENOENT ? 0 : 1; };
    glob_t found{};
    const int result = ::glob(path.c_str(), 0, is_serious, &found);
    if (result == GLOB_ABORTED || result == GLOB_NOSPACE)
        top.complain("include", fmt::format("{}: {}", path, std::strerror(errno)));
    for (size_t i = 0; result == 0 && i < found.gl_pathc; ++i) read_file(found.gl_pathv[i], false);
    ::globfree(&found);
}

void Loader::include_one(Table &top, const std::string &path) {
    if (!is_overlaid(path) && ::access(path.c_str(), R_OK) != 0)
        return top.complain("include", fmt::format("{}: {}", path, std::strerror(errno)));
    read_file(path, false);
}

// Of several groups the shortest times count, and all values are kept if one of them wants it so.
void Loader::finish(Entry &entry) {
    std::optional<Seconds> interval;
    std::optional<Seconds> selftest;
    std::optional<Keep> keep;
    for (const std::string &name : entry.device.groups) {
        const auto place = group_places_.find(name);
        if (place == group_places_.end()) {
            complain(entry, fmt::format("there is no group \"{}\"", name));
            continue;
        }
        const Group &group = inventory_.groups[place->second];
        interval = shorter(interval, group.interval);
        selftest = shorter(selftest, group.selftest);
        if (group.keep) keep = std::max(keep.value_or(Keep::changes), *group.keep);
        entry.device.metrics |= group.metrics;
    }
    entry.device.interval = entry.interval.value_or(interval.value_or(interval_));
    entry.device.selftest = entry.selftest.value_or(selftest.value_or(selftest_));
    entry.device.keep = entry.keep.value_or(keep.value_or(keep_));
}

// By name, which is the key of the history, and by address: nothing else may ask a device at the
// same time.
void Loader::check_duplicates() {
    std::map<std::string_view, const Entry *> names;
    std::map<std::pair<in_addr_t, uint16_t>, const Entry *> places;
    for (const Entry &entry : entries_) {
        const Device &device = entry.device;
        const auto [name, is_new] = names.emplace(device.name, &entry);
        if (!is_new)
            complain(entry, fmt::format("there is another device \"{}\", at {}:{}", device.name,
                                        name->second->file, name->second->line));
        const auto [place, is_alone] = places.emplace(std::pair(device.ip, device.port), &entry);
        if (!is_alone && device.ip != 0)
            complain(entry, fmt::format("\"{}\" has this address and port, too",
                                        place->second->device.name));
    }
}

} // namespace

bool is_address(std::string_view database) {
    return database.starts_with("postgresql://") || database.starts_with("postgres://");
}

const Device *Inventory::find(std::string_view name) const {
    const auto found =
        std::lower_bound(devices.begin(), devices.end(), name,
                         [](const Device &d, std::string_view n) { return d.name < n; });
    return found != devices.end() && found->name == name ? &*found : nullptr;
}

std::string beside(const std::string &file, const std::string &path) {
    return std::filesystem::path(file).parent_path() / path;
}

Loaded load_settings(const std::string &path) {
    Loaded loaded;
    Loader(loaded).load_settings(path);
    return loaded;
}

Loaded load_inventory(const std::string &path, const Overlay *overlay, Lists lists) {
    Loaded loaded;
    Loader(loaded, overlay, lists).load(path);
    std::stable_sort(loaded.complaints.begin(), loaded.complaints.end(),
                     [](const Complaint &a, const Complaint &b) {
                         return std::tie(a.file, a.line) < std::tie(b.file, b.line);
                     });
    return loaded;
}

Inventory checked(Loaded loaded) {
    if (loaded.complaints.empty()) return std::move(loaded.inventory);
    const bool is_missing = !loaded.is_read && loaded.complaints.size() == 1;
    throw dtctl::Failure(is_missing ? dtctl::Exit::failed : dtctl::Exit::broken,
                         text_of(loaded.complaints));
}

std::string text_of(const std::vector<Complaint> &complaints) {
    std::string text;
    for (const Complaint &complaint : complaints) {
        text += text.empty() ? "" : "\n";
        text += complaint.line == 0
                    ? complaint.text
                    : fmt::format("{}:{}: {}", complaint.file, complaint.line, complaint.text);
    }
    return text;
}

std::optional<Seconds> parse_duration(std::string_view text) {
    const auto count = measured(text, time_units, longest_duration.count());
    return count && *count > 0 ? std::optional(Seconds(*count)) : std::nullopt;
}

std::optional<uint64_t> parse_size(std::string_view text) {
    const auto count = measured(text, size_units, INT64_MAX);
    return count && *count > 0 ? std::optional(static_cast<uint64_t>(*count)) : std::nullopt;
}

} // namespace dtfleet
