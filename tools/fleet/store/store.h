// The seam between the service and its database: what is written, by one thread, and what is read,
// by as many as like, each with a Reader of its own.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/digest.h"
#include "fleet/store/record.h"

#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet {

// The database cannot be used now: locked, full, not connected. What was asked has not been done,
// and may be asked again later. What can never succeed is a dtctl::Failure.
class Unavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// ---- what is known ------------------------------------------------------------------------------

struct DeviceState {
    int64_t id = 0;
    std::string name;
    std::string address; // as in the inventory
    uint16_t port = 0;
    std::vector<std::string> groups;
    Seconds interval{};
    bool is_listed = true;                     // in the inventory, and enabled
    std::optional<uint16_t> identity_listed;   // in the inventory
    std::optional<uint16_t> identity_expected; // that, or the one that was accepted since
    std::optional<uint16_t> identity_seen;
    std::string address_seen;      // that it connected from last
    Microseconds paused_until = 0; // not asked before; 0: not paused
    Microseconds last_try = 0;     // of the last collection that has ended; 0: never
    Microseconds last_ok = 0;      // of the last whole one; 0: never
    uint32_t failures = 0;         // collections that failed since
    Outcome last_outcome = Outcome::whole;
    std::string last_reason;
    uint32_t last_duration = 0; // microseconds, from the first command to the end
};

struct Series {
    int64_t id = 0;
    std::string collector; // bytes, as the device sent them
    uint32_t section = 0;
    uint32_t key = 0;
    dt::decode::Kind type = dt::decode::Kind::int32;
    std::string name; // what the inventory says it means; empty: nothing
    std::string unit;
    bool is_signed = false;
    bool is_log = false;
};

// A value as it is stored. gone: the key was missing from a whole run.
struct StoredValue {
    enum class Form : uint8_t { number, bytes, gone };
    Form form = Form::gone;
    uint64_t number = 0;
    std::string bytes;
};

// A row of the history; what several runs share is named once by the reader.
struct FlatValue {
    int64_t collection = 0; // the order of the history
    RunId run{};
    int64_t device = 0;
    Microseconds time = 0;
    Outcome outcome = Outcome::whole;
    uint32_t command = 0;
    int64_t series = 0;
    uint32_t ordinal = 0; // counts the arrivals under one collector, section and key
    StoredValue value;
};

struct LatestValue {
    int64_t device = 0;
    int64_t series = 0;
    uint32_t ordinal = 0;
    Microseconds time = 0; // of the run that brought it last
    StoredValue value;
};

struct RunRow { // a run without its values
    int64_t collection = 0;
    RunRecord record;
};

// One column of a chart: all values from its time to the next one's.
struct Point {
    Microseconds time = 0;
    uint64_t count = 0;
    uint64_t min = 0; // 64-bit patterns, compared as the series' sign says
    uint64_t max = 0;
    uint64_t last = 0;
};

struct LogLine {
    int64_t series = 0;
    int64_t seq = 0;
    std::string stamp; // bytes, both
    std::string text;
    Microseconds time = 0; // of the run that brought it first
    bool gap_before = false;
};

// From a fault log file: a logged line, or a value.
struct FaultRow {
    int64_t id = 0;             // the order of the history
    Microseconds pass_time = 0; // when the device wrote the file
    std::string fault;          // its name, bytes
    std::string kind;  // a line's "init" or "run", or a value's "register", "counter64", ...
    std::string stamp; // of a line, as the file has it
    uint32_t value_id = 0;
    std::string value; // a line's text, a number in decimal, or bytes
};

// A fault log file that is to be imported.
struct FaultFile {
    std::string device;
    Digest digest{};            // of its bytes: the same file is not taken again
    Microseconds written = 0;   // by the device
    std::vector<FaultRow> rows; // in its order; ids and times are the store's to give
};

// ---- writing ------------------------------------------------------------------------------------

class Store {
public:
    virtual ~Store() = default;

    // Stores all of them, in one transaction or several, a device's in their order; one that is
    // there already is left out. Throws Unavailable when some may not be stored: all can be given
    // again.
    virtual void write(std::span<const RunRecord> runs) = 0;

    // As many as are best stored at once, where there is a choice.
    virtual size_t runs_at_once() const { return 1000; }

    // Devices by name: new ones are added, those that are gone are kept, and no longer listed.
    virtual void take_inventory(const Inventory &inventory) = 0;

    // The same for a collector whose database has the inventory, and so the devices, already.
    virtual void follow(const Inventory &inventory) { take_inventory(inventory); }

    // Does a slice of housekeeping: retention, freed pages, the clock. True: there is more to do.
    virtual bool tidy() = 0;

    // Copies for well under a second what back_up of upkeep.h copies, with what is written
    // meanwhile. True: the file is not whole yet, and the call is to be made again. Throws
    // dtctl::Failure, also while another file is being made.
    virtual bool back_up(const std::string &file) = 0;

    // Why nothing new may be asked (no disk, no database, ...); empty: there is room.
    virtual std::string no_room() = 0;

    // Whether retention is held because the clock has moved.
    virtual bool is_clock_held() = 0;

    // Whether the database is larger than it should be with nothing left that may be deleted.
    virtual bool is_too_large() = 0;

    // What keys mean, from now on and for the series that are there: as take_inventory, for who
    // stores runs beside the service, and leaves the devices to it.
    virtual void take_meanings(const std::vector<SeriesMeaning> &meanings) = 0;

    // Adds what a device's faults do not have yet, and says how many rows those are. The rows of
    // each log, and all values together, are sequences whose oldest the device drops: so what the
    // stored ones end with, and a newer file begins with, is there already.
    virtual size_t add_faults(const FaultFile &file) = 0;

    // What operators do to a device. Throw dtctl::Failure with a sentence when the name is unknown
    // or, for rename's `to`, taken.
    virtual void pause(const std::string &device, Microseconds until) = 0;
    virtual void rename(const std::string &from, const std::string &to) = 0;
    virtual void forget(const std::string &device) = 0;
    virtual void accept(const std::string &device) = 0; // the identity that was seen is right
    virtual void accept_clock() = 0;
};

// Opens the database. A file is made, and an older one migrated after a backup beside it; on a
// server both is for migrate_database of upkeep.h. Throws dtctl::Failure when it is broken, of
// another version or another program's, Unavailable.
std::unique_ptr<Store> open_store(const std::string &database, const Retention &retention);

// ---- reading ------------------------------------------------------------------------------------

// Which values: empty members match everything.
struct ValueQuery {
    std::optional<int64_t> device;
    std::vector<int64_t> series;
    Microseconds from = 0;
    Microseconds to = INT64_MAX; // the first time that is not wanted
};

// Every call reads in short transactions, of well under a second. Lists come in slices: the next
// slice begins behind the last row of the one before. Throws Unavailable.
class Reader {
public:
    virtual ~Reader() = default;

    // Grows with each run that is stored and each change to a device.
    virtual int64_t version() = 0;

    virtual std::vector<DeviceState> devices() = 0; // sorted by name
    virtual std::optional<DeviceState> device(std::string_view name) = 0;
    virtual std::vector<Series> series() = 0; // of the whole fleet
    virtual std::vector<Series> series_of(int64_t device) = 0;

    // What a device's runs of a command brought last; 0 stands for collections of any command where
    // none of 0 has been made.
    virtual std::vector<LatestValue> latest(int64_t device, uint32_t command) = 0;

    // Values in the order of the history or, of a device or a time, device after device in that of
    // time and then as more is stored, whatever its time. `after` is a place among them that the
    // call moves on. `rows` becomes the slice, at most `limit` of them, perhaps none; false:
    // nothing is behind it yet.
    struct Place {
        int64_t device = 0;     // whose values are read by time; 0: before the first
        int64_t collection = 0; // 0: before the first
        Microseconds time = 0;
        int64_t value = 0;
        int64_t last = 0; // what is larger is read by its id; 0: not known
    };
    virtual bool values(const ValueQuery &query, Place &after, size_t limit,
                        std::vector<FlatValue> &rows) = 0;

    // The last runs of a device that are older than `before`, the newest first.
    virtual std::vector<RunRow> runs(int64_t device, int64_t before, size_t limit) = 0;

    // A series of a device's collections over time in at most `columns` columns, as if each run had
    // stored all its values. What is older than the values comes from the hours' sums, and so does
    // all where a column is an hour and more, or the values are too many. A first point with a
    // count of 0 is of the value that held at `from`.
    virtual std::vector<Point> points(int64_t device, int64_t series, uint32_t ordinal,
                                      Microseconds from, Microseconds to, size_t columns) = 0;

    // The newest lines of a log that are older than `before`, the oldest first.
    virtual std::vector<LogLine> log(int64_t device, int64_t series, int64_t before,
                                     size_t limit) = 0;
    virtual std::vector<FaultRow> faults(int64_t device, int64_t before, size_t limit) = 0;
};

std::unique_ptr<Reader> open_reader(const std::string &database);

} // namespace dtfleet
