// A series over time, for a picture: what is read, from whichever database, and what becomes of it.
#pragma once

#include "fleet/store/fields.h"

#include <functional>
#include <optional>
#include <vector>

namespace dtfleet {

struct ChartQuery {
    int64_t device = 0;
    int64_t series = 0;
    uint32_t ordinal = 0;
    Microseconds from = 0;
    Microseconds to = 0;
    size_t columns = 0;
};

// What the database has of one query's device and series.
class ChartSource {
public:
    virtual ~ChartSource() = default;

    virtual std::optional<Series> series() = 0;

    // Of all commands of the device.
    virtual std::vector<CommandState> states() = 0;

    // Where a command's runs and hours begin, and where the device's runs and its hours end;
    // nothing where there are none. Runs behind the state's need not be looked at for it: a command
    // that was asked for once, long ago, must not cost a look at all that came since.
    struct Extent {
        std::optional<Microseconds> first_run, last_run;
        std::optional<int64_t> first_hour, last_hour;
    };
    virtual Extent extent(uint32_t command) = 0;

    // The sums of hours that are over, from the first one on.
    using TakeHour = std::function<void(int64_t hour, const Sum &sum)>;
    virtual void hours(uint32_t command, int64_t first, int64_t end, const TakeHour &take) = 0;

    // What a run has stored of the series.
    struct Brought {
        Microseconds time = 0;
        bool is_whole = false;
        bool is_history = false; // later runs are not compared with it
        bool is_stored = false;
        std::optional<uint64_t> number; // that is stored, unless it is gone or none
    };

    // The number that the last run of that time stored which is no history; nothing when none did,
    // or that it is gone.
    virtual std::optional<uint64_t> held(uint32_t command, Microseconds from, Microseconds to) = 0;

    // In the order of time, after held() for the time before. False when they are too many, and
    // some are left.
    using TakeRun = std::function<void(const Brought &run)>;
    virtual bool runs(uint32_t command, Microseconds from, Microseconds to,
                      const TakeRun &take) = 0;
};

// As Reader::points.
std::vector<Point> read_chart(ChartSource &source, const ChartQuery &query);

} // namespace dtfleet
