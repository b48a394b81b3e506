// The table of series, with what is known of them in memory. What runs bring that is new is asked
// for in one go.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/store.h"

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace dtfleet {

// The rows of the table, in whichever database.
class SeriesRows {
public:
    virtual ~SeriesRows() = default;

    struct Wanted {
        std::string_view collector; // bytes
        uint32_t section;
        uint32_t key;
        dt::decode::Kind type;
        const SeriesMeaning *meaning; // for a row that is made
    };
    struct Found {
        int64_t id = 0;
        bool is_signed = false;
        bool is_log = false;
    };
    virtual std::vector<Found> find_or_make(std::span<const Wanted> wanted) = 0;
    virtual void mark_logs(const std::vector<int64_t> &ids) = 0;
    virtual std::optional<Series> find(int64_t id) = 0;

    // Gives each row the name, the unit and the sign that it is to have.
    using MeaningOf = std::function<const SeriesMeaning &(const std::string &collector,
                                                          uint32_t section, uint32_t key)>;
    virtual void change_meanings(const MeaningOf &meaning_of) = 0;
};

// Section and key with the number that a collector has in this process.
using What = std::pair<uint64_t, uint32_t>;

// What arrives under one collector, section and key.
struct Key {
    bool is_signed = false;
    bool is_known_log = false;    // the table says so already
    std::optional<bool> log;      // what the inventory says about its strings
    std::array<int64_t, 5> ids{}; // of its series by type; 0: not known yet
    uint64_t run = 0;             // in which it arrived last,
    uint32_t arrivals = 0;        // and how often in it
    What what;
};

class SeriesTable {
public:
    explicit SeriesTable(SeriesRows &rows) : rows_(rows) {}

    // Keys stay where they are until the next batch.
    void begin_batch();

    // A transaction was undone: series that it made are not there.
    void forget();

    // Counts arrivals anew, of a run whose collectors are these.
    void begin_run(const std::vector<std::string> &collectors);

    // The key of a value of this run.
    Key &key_of(const Sample &sample);

    // After the next resolve() its series of this type is known, and marked as a log's.
    void want(Key &key, dt::decode::Kind type);
    void mark_log(Key &key);

    // Finds or makes all series that were wanted.
    void resolve();

    // What keys mean, of series that are made from now on.
    void learn(const std::vector<SeriesMeaning> &meanings);

    // The same, and of those that are there.
    void take_meanings(const std::vector<SeriesMeaning> &meanings);

    struct Facts {
        dt::decode::Kind type = dt::decode::Kind::int32;
        bool is_signed = false;
        What what{UINT64_MAX, 0};
    };
    const Facts &facts_of(int64_t series);

private:
    struct Wanted {
        Key *key;
        dt::decode::Kind type;
    };
    struct Hash {
        size_t operator()(const What &what) const {
            return (what.first * 0x9e3779b97f4a7c15U + what.second) * 0xff51afd7ed558ccdU >> 7;
        }
    };

    uint32_t number_of(const std::string &collector);
    const std::string &collector_of(const Key &key) const {
        return collectors_[key.what.first >> 32];
    }
    const SeriesMeaning &meaning_of(const std::string &collector, uint32_t section,
                                    uint32_t key) const;
    void resolve_wanted();
    void mark_new_logs();

    SeriesRows &rows_;
    std::multimap<std::pair<std::string, uint32_t>, SeriesMeaning> meanings_;
    std::unordered_map<std::string, uint32_t> numbers_; // of collectors, in this process
    std::vector<std::string> collectors_;               // by their numbers
    std::unordered_map<What, Key, Hash> keys_;
    std::unordered_map<int64_t, Facts> facts_;
    std::vector<Wanted> wanted_;
    std::vector<Key *> new_logs_;
    uint64_t run_ = 0;
    std::vector<uint32_t> collectors_of_run_;
};

} // namespace dtfleet
