#include "fleet/store/sqlite/retention.h"

#include "fleet/store/sqlite/devices.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

namespace dtfleet::sqlite {
namespace {

constexpr Microseconds between_sweeps = microseconds_an_hour;
constexpr int64_t no_day = -(INT64_MAX / microseconds_a_day); // before which nothing can be

constexpr std::chrono::milliseconds slice(50);

// The first day that is kept whole.
int64_t first_day(Seconds age, Microseconds now) {
    if (age == Seconds(0)) return no_day;
    return day_of(now - age.count() * microseconds_a_second);
}

// Without a word of the operator: as much as is little for most machines, and never all of a small
// one's disk.
uint64_t most_bytes(const Retention &retention, const std::string &path) {
    if (retention.bytes) return *retention.bytes == 0 ? UINT64_MAX : *retention.bytes;
    std::error_code error;
    const auto disk =
        std::filesystem::space(std::filesystem::absolute(path, error).parent_path(), error);
    return error ? Retention::usual_bytes : std::min(Retention::usual_bytes, disk.capacity / 2);
}

} // namespace

void Housekeeper::take(const Retention &retention) {
    retention_ = retention;
    next_sweep_ = 0;
}

bool Housekeeper::tidy(const Clocks &now) {
    if (purge_some(database_)) return true;
    if (is_clock_held(database_, now)) {
        sweep_.reset();
        return give_back();
    }
    note_clock(database_, now);
    return sweep(now) || give_back();
}

bool Housekeeper::sweep(const Clocks &now) {
    if (!sweep_) begin_sweep(now);
    if (!sweep_) return false;
    try {
        if (sweep_->step()) return true;
    } catch (...) {
        sweep_.reset();
        next_sweep_ = 0;
        throw;
    }
    oldest_left_ = sweep_->oldest_left();
    sweep_.reset();
    return true;
}

// By age once an hour. When that does not suffice, the oldest day that is left goes, and again, but
// never today's; what cannot be helped then is looked at in the next hour.
void Housekeeper::begin_sweep(const Clocks &now) {
    const int64_t today = day_of(now.wall);
    Sweep::Bounds bounds{first_day(retention_.age, now.wall),
                         first_day(retention_.long_age, now.wall)};
    const bool is_due = next_sweep_ <= now.boot;
    const bool is_large_now = is_large();
    if (!is_due) is_too_large_ = is_large_now && oldest_left_ >= today;
    if (!is_due && (!is_large_now || oldest_left_ >= today)) return;
    if (is_due) {
        next_sweep_ = now.boot + between_sweeps;
        forget_removed(bounds.others);
    } else {
        bounds.runs = std::max(bounds.runs, oldest_left_ + 1);
        bounds.others = std::max(bounds.others, oldest_left_ + 1);
    }
    sweep_.emplace(database_, bounds, now.wall);
}

// What freed pages take does not count: they are being given back.
bool Housekeeper::is_large() {
    const int64_t pages =
        database_.number("PRAGMA page_count") - database_.number("PRAGMA freelist_count");
    const auto bytes = static_cast<uint64_t>(pages * database_.number("PRAGMA page_size"));
    return bytes > most_bytes(retention_, database_.path());
}

// Devices that are in the inventory no more, when nothing of them is left but what is never
// deleted.
void Housekeeper::forget_removed(int64_t day) {
    const Microseconds bound = day * microseconds_a_day;
    database_
        .statement("UPDATE device SET name = NULL WHERE listed = 0 AND last_try BETWEEN 1 AND "
                   "?1 - 1 AND NOT EXISTS(SELECT 1 FROM fault_file f WHERE f.device = device.id "
                   "AND f.pass_time >= ?1)")
        .run(bound);
}

// In small transactions: each moves pages from the end of the file to free places.
bool Housekeeper::give_back() {
    const auto end = std::chrono::steady_clock::now() + slice;
    int64_t before = INT64_MAX;
    for (;;) {
        const int64_t free = database_.number("PRAGMA freelist_count");
        if (free == 0 || free >= before) return false; // or it cannot be
        if (std::chrono::steady_clock::now() >= end) return true;
        before = free;
        database_.execute("PRAGMA incremental_vacuum(64)");
    }
}

} // namespace dtfleet::sqlite
