// The table of series, with what is known of them in memory.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/record.h"
#include "fleet/store/sqlite/database.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace dtfleet::sqlite {

// What arrives under one collector, section and key.
struct Key {
    bool is_signed = false;
    bool is_known_log = false;          // the table says so already
    std::optional<bool> log;            // what the inventory says about its strings
    std::array<int64_t, 5> ids{};       // of its series by type; 0: not known yet
    uint64_t run = 0;                   // in which it arrived last,
    uint32_t arrivals = 0;              // and how often in it
    std::pair<uint64_t, uint32_t> what; // section and key with the collector's number
};

class SeriesTable {
public:
    explicit SeriesTable(Database &database) : database_(database) {}

    // Counts arrivals anew, of a run whose collectors are these.
    void begin_run(const std::vector<std::string> &collectors);

    // The key of a value of this run; stays where it is until the next run.
    Key &key_of(const Sample &sample);

    // Its series of this type, which is made when it is new.
    int64_t id_of(Key &key, dt::decode::Kind type);

    // How often the key of a series has arrived in this run, as whatever type.
    uint32_t arrivals_of(int64_t series) const;

    void mark_log(Key &key);

    // What keys mean, from now on and for the series that are there.
    void take_meanings(const std::vector<SeriesMeaning> &meanings);

    // A transaction was undone: series that it made are not there.
    void forget() { keys_.clear(); }

private:
    struct Hash {
        size_t operator()(const std::pair<uint64_t, uint32_t> &what) const {
            return (what.first * 0x9e3779b97f4a7c15U + what.second) * 0xff51afd7ed558ccdU >> 7;
        }
    };

    uint32_t number_of(const std::string &collector);
    const SeriesMeaning *meaning_of(const std::string &collector, uint32_t section,
                                    uint32_t key) const;

    Database &database_;
    std::multimap<std::pair<std::string, uint32_t>, SeriesMeaning> meanings_;
    std::unordered_map<std::string, uint32_t> numbers_; // of collectors, in this process
    std::vector<std::string> collectors_;               // by their numbers
    std::unordered_map<std::pair<uint64_t, uint32_t>, Key, Hash> keys_;
    uint64_t run_ = 0;
    std::vector<uint32_t> collectors_of_run_;
};

} // namespace dtfleet::sqlite
