// A store in memory, for what only reads.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/store/store.h"
#include "host/failure.h"

#include <atomic>
#include <future>
#include <mutex>

namespace dtfleet {

// What a test puts in, and what keeps the reading thread.
struct Shelf {
    std::mutex mutex;
    std::vector<DeviceState> devices;
    std::vector<Series> series;
    std::vector<LatestValue> latest; // of any device
    std::vector<Point> points;       // of any series
    std::vector<RunRow> runs;        // the newest first
    std::vector<LogLine> lines;      // the oldest first
    std::vector<FaultRow> faults;
    std::shared_future<void> held;
    std::atomic<bool> is_locked = false;
    std::atomic<bool> is_broken = false;
    std::atomic<int> reads = 0; // that have begun
    std::atomic<int64_t> version = 1;
};

inline DeviceState device(int64_t id, const std::string &name) {
    DeviceState state;
    state.id = id;
    state.name = name;
    state.groups = {"hall"};
    state.interval = Seconds(60);
    state.last_ok = state.last_try = wall_microseconds();
    return state;
}

class Shelved : public Reader {
public:
    explicit Shelved(Shelf &shelf) : shelf_(shelf) {}
    int64_t version() override {
        if (shelf_.is_locked) throw Unavailable("the database is locked");
        if (shelf_.is_broken) throw dtctl::Failure(dtctl::Exit::broken, "the database is broken");
        ++shelf_.reads;
        if (shelf_.held.valid()) shelf_.held.wait();
        return shelf_.version;
    }
    std::vector<DeviceState> devices() override {
        const std::lock_guard lock(shelf_.mutex);
        return shelf_.devices;
    }
    std::optional<DeviceState> device(std::string_view name) override {
        for (const DeviceState &one : devices())
            if (one.name == name) return one;
        return std::nullopt;
    }
    std::vector<Series> series() override { return shelf_.series; }
    std::vector<Series> series_of(int64_t) override { return shelf_.series; }
    std::vector<LatestValue> latest(int64_t, uint32_t) override { return shelf_.latest; }
    bool values(const ValueQuery &, Place &, size_t, std::vector<FlatValue> &) override {
        return false;
    }
    std::vector<RunRow> runs(int64_t, int64_t before, size_t limit) override {
        std::vector<RunRow> rows;
        for (const RunRow &row : shelf_.runs)
            if (row.collection < before && rows.size() < limit) rows.push_back(row);
        return rows;
    }
    std::vector<Point> points(int64_t, int64_t, uint32_t, Microseconds from, Microseconds to,
                              size_t) override {
        std::vector<Point> points;
        for (const Point &point : shelf_.points)
            if (point.time >= from && point.time < to) points.push_back(point);
        return points;
    }
    std::vector<LogLine> log(int64_t, int64_t, int64_t before, size_t limit) override {
        std::vector<LogLine> lines;
        for (const LogLine &line : shelf_.lines)
            if (line.seq < before) lines.push_back(line);
        if (lines.size() > limit)
            lines.erase(lines.begin(), lines.end() - static_cast<ptrdiff_t>(limit));
        return lines;
    }
    std::vector<FaultRow> faults(int64_t, int64_t, size_t) override { return shelf_.faults; }

private:
    Shelf &shelf_;
};

} // namespace dtfleet
