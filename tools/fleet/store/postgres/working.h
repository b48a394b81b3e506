// What a batch of runs changes: read at its begin, changed in memory by one run after the other,
// and staged as a whole.
#pragma once

#include "fleet/store/arrivals.h"
#include "fleet/store/logs.h"
#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/copy.h"
#include "fleet/store/state.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace dtfleet::postgres {

using Place = std::pair<int64_t, uint32_t>; // a series and an ordinal

// Whether some of its values are too long for it.
bool has_longs(const State &state);

// The states of devices' commands. One is unpacked when its turn comes, so that there is never room
// needed for more.
class States {
public:
    using Of = std::pair<int64_t, uint32_t>; // a device and a command

    struct One {
        int64_t serial = 0; // 0: there is no row yet
        bool is_known = false;
        bool is_changed = false;
        State state;
        std::map<Place, std::string> longs; // the values that are too long for it
        std::set<Place> new_longs;
    };

    void read(Connection &connection, const std::vector<int64_t> &devices);

    // The hour that is being summed up, if there is a state.
    std::optional<int64_t> hour(const Of &of) const;

    One take(const Of &of) const;

    void stage(const Of &of, const One &one);
    const Rows &states() const { return staged_; }
    const Rows &longs() const { return staged_longs_; }

private:
    void read_longs(Connection &connection, const std::vector<int64_t> &devices);

    std::optional<Result> rows_;
    std::map<Of, int> places_; // in the rows
    std::map<Of, std::map<Place, std::string>> longs_;
    Rows staged_{8};
    Rows staged_longs_{5};
};

// The sums of hours that are over.
class Rollups {
public:
    Rollups(Connection &connection, SeriesTable &series)
        : connection_(connection), series_(series) {}

    using Hour = std::tuple<int64_t, uint32_t, int64_t>; // device, command, hour

    // Reads at once what will be needed.
    void read(const std::vector<Hour> &hours);

    // Adds the sums of the state to its hour's, and begins anew: the sums are empty, and what was
    // gone is left out.
    void close(int64_t device, uint32_t command, State &state);

    void stage(Rows &rows) const;

private:
    struct One {
        int64_t serial = 0;
        bool is_changed = false;
        std::map<Place, Sum> sums;
    };
    One &at(const Hour &hour);
    void join(int64_t series, Sum &sum, const Sum &later);

    Connection &connection_;
    SeriesTable &series_;
    std::map<Hour, One> all_;
};

// The logs of devices.
class LogBook {
public:
    explicit LogBook(Connection &connection) : connection_(connection) {}

    // Reads at once what is known of these devices' logs.
    void read(const std::vector<int64_t> &devices);

    // place: of the run that brings it.
    void take(const RunRecord &run, int64_t device, int64_t place, const Arrivals::Log &log);

    void stage(Rows &lines, Rows &tails) const;

private:
    struct Tail {
        int64_t first = 0, count = 0, hash = 0;
        bool is_changed = false;
    };
    struct Fresh {
        std::string stamp, text;
        int64_t seq, place;
        Microseconds time;
        bool gap_before;
    };
    struct One {
        int64_t end = 0;                // the last line's number
        std::map<uint32_t, Tail> tails; // by command
        std::vector<Fresh> fresh;
    };
    Texts last_lines(int64_t device, int64_t series, const One &one, size_t count);

    Connection &connection_;
    std::map<std::pair<int64_t, int64_t>, One> all_; // by device and series
};

} // namespace dtfleet::postgres
