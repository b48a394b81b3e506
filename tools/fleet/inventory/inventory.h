// What the operator wrote: which devices there are, how often each is asked, what is kept.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

using Seconds = std::chrono::seconds;

// Which values of a run are stored: those that differ from the last ones, or all.
enum class Keep { changes, all };

// Bounds on runs. They hold for the whole engine, but for the first three of one device's run.
struct Limits {
    Seconds silence{10};            // longest wait for a device, connected or not
    Seconds run{60};                // from the first command to the end
    size_t value_bytes = 1'000'000; // one string or buffer
    size_t run_bytes = 4'000'000;
    size_t run_series = 10'000;
    size_t waiting = 256;           // runs whose device has not connected yet,
    size_t open = 1024;             // and whose has; with so many of either no other begins
    size_t waiting_per_subnet = 64; // the same for each /24 of addresses
    size_t per_subnet = 128;
};

// When history is deleted. 0 turns a bound off.
struct Retention {
    static constexpr uint64_t usual_bytes = 10'000'000'000; // or half of the disk, if that is less
    Seconds age{7 * 24 * 3600};                             // of runs and their values
    Seconds long_age{730 * 24 * 3600}; // of the hours' sums, lines of logs, imported faults
    std::optional<uint64_t> bytes;     // of the database's file

    bool operator==(const Retention &) const = default;
};

struct Group {
    std::string name;
    std::optional<Seconds> interval;
    std::optional<Seconds> selftest;
    std::optional<Keep> keep;
    bool metrics = false; // /metrics tells of each device

    bool operator==(const Group &) const = default;
};

struct Device {
    std::string name; // the key of its history
    std::string address;
    in_addr_t ip = 0; // address, in network order
    uint16_t port = 0;
    std::vector<std::string> groups;
    std::optional<uint16_t>
        identity;       // first byte high, as it is shown; a different one is reported
    Seconds interval{}; // its own, its groups' shortest, or the fleet's
    Seconds selftest{}; // likewise; 0: never
    Keep keep = Keep::changes;
    uint32_t command = 0;
    bool enabled = true;
    bool metrics = false;

    bool operator==(const Device &) const = default;
};

// What the values under a key mean.
struct SeriesMeaning {
    std::string collector;
    std::optional<uint32_t> section; // absent: every section
    uint32_t key = 0;
    std::string name;
    std::string unit;
    bool is_signed = false;
    std::optional<bool> log; // whether its strings are a log; absent: judged by their form

    bool operator==(const SeriesMeaning &) const = default;
};

// Whether a database is one on a server, by its address "postgresql://...", and not a file.
bool is_address(std::string_view database);

struct Inventory {
    std::string database = "fleet.db"; // relative to the file's directory, or an address
    uint16_t listen = 9098;            // 0: any free port
    uint16_t announce = 0;             // what devices are told to connect to; 0: as listen
    std::string control;               // the socket for commands; empty: beside the database
    std::string web_bind;              // empty: no page
    std::string web_token;             // a file; empty: none
    std::vector<std::string>
        web_hosts; // names by which the page may be called, besides its address
    Limits limits;
    Retention retention;
    Seconds outage_grace{0};      // of a database on a server: for so long, devices are asked on
    uint64_t spool = 500'000'000; // bytes of runs that wait for it on disk
    std::vector<Group> groups;
    std::vector<Device> devices; // sorted by name
    std::vector<SeriesMeaning> series;
    int64_t number = 0; // of what a database on a server has of it; 0: it has none yet

    const Device *find(std::string_view name) const;
};

// A mistake, and where. Line 0: the file as a whole.
struct Complaint {
    std::string file;
    size_t line = 0;
    std::string text;
};

// A line each, with file and line in front.
std::string text_of(const std::vector<Complaint> &complaints);

struct Loaded {
    Inventory inventory; // to be used only without complaints
    std::vector<Complaint> complaints;
    bool is_read = true; // false: the file could not be; what it includes is its own business
};

// The inventory. Throws dtctl::Failure with all complaints, a line each.
Inventory checked(Loaded loaded);

// A file that is to be: read as if it held this text already and were included.
struct Overlay {
    std::string file;
    std::string text;
    std::string origin;        // the file that the text was made from: mistakes are told there,
    std::vector<size_t> lines; // in the line that belongs to each of the text
};

// Where devices, groups and series may stand. Beside the address of a database on a server nobody
// would take them: they belong into that database.
enum class Lists { beside_files, anywhere };

// Reads the file and those that it includes, and checks them as a whole: all mistakes are found at
// once, up to a hundred. Never throws for what the files hold; a file that cannot be read is a
// complaint.
Loaded load_inventory(const std::string &path, const Overlay *overlay = nullptr,
                      Lists lists = Lists::beside_files);

// The same without groups, devices and series, and what the file includes: quick for any fleet, and
// good while mistakes in those are being mended.
Loaded load_settings(const std::string &path);

// A path in an inventory: without a / at its beginning it begins at the directory of that file.
std::string beside(const std::string &file, const std::string &path);

// Whether a device or group may be called so: 1 to 200 bytes that can be shown, and no backslash.
bool is_name(std::string_view text);

// "10s", "5m", "2h", "7d"; nothing for anything else, 0 and what is above ten years.
std::optional<Seconds> parse_duration(std::string_view text);

// "500MB", "2GB" (powers of ten), or bytes; nothing for anything else.
std::optional<uint64_t> parse_size(std::string_view text);

} // namespace dtfleet
