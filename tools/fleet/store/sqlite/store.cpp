#include "fleet/store/sqlite/open.h"

#include "fleet/store/sqlite/backup.h"
#include "fleet/store/sqlite/devices.h"
#include "fleet/store/sqlite/fault_table.h"
#include "fleet/store/sqlite/retention.h"
#include "fleet/store/sqlite/run_writer.h"
#include "fleet/store/sqlite/schema.h"
#include "fleet/store/sqlite/series_rows.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <sys/statvfs.h>

#include <algorithm>
#include <filesystem>
#include <optional>

namespace dtfleet::sqlite {
namespace {

constexpr uint64_t megabyte = 1'000'000;

class SqliteStore final : public Store {
public:
    SqliteStore(const std::string &path, const Retention &retention)
        : database_(path, Database::Access::make), rows_(database_), series_(rows_),
          runs_(database_, series_), house_(database_, retention) {
        open_schema(database_);
    }

    void write(std::span<const RunRecord> runs) override {
        change([&] {
            runs_.begin();
            for (const RunRecord &run : runs) runs_.write(run);
            runs_.end();
        });
    }

    void take_inventory(const Inventory &inventory) override {
        change([&] {
            take_devices(database_, inventory.devices);
            series_.take_meanings(inventory.series);
        });
        house_.take(inventory.retention);
    }

    void take_meanings(const std::vector<SeriesMeaning> &meanings) override {
        change([&] { series_.take_meanings(meanings); });
    }

    size_t add_faults(const FaultFile &file) override {
        size_t added = 0;
        change([&] { added = store_faults(database_, file, read_clocks().wall); });
        return added;
    }

    bool tidy() override { return house_.tidy(read_clocks()); }

    bool back_up(const std::string &file) override {
        if (backup_ && backup_->file() != file)
            throw dtctl::Failure(dtctl::Exit::failed, backup_->file() + ": is being written");
        try {
            if (!backup_) backup_.emplace(database_, file);
            if (backup_->step()) return true;
        } catch (...) {
            backup_.reset();
            throw;
        }
        backup_.reset();
        return false;
    }

    std::string no_room() override {
        if (database_.has_moved()) return database_.path() + ": the file has been moved or deleted";
        struct statvfs disk {};
        const auto directory = std::filesystem::absolute(database_.path()).parent_path();
        if (::statvfs(directory.c_str(), &disk) != 0) return {}; // writing will tell
        const uint64_t floor =
            std::min<uint64_t>(256 * megabyte, uint64_t{disk.f_blocks} * disk.f_frsize / 20);
        const uint64_t free = uint64_t{disk.f_bavail} * disk.f_frsize;
        if (free >= floor) return {};
        return fmt::format("{}: {} MB are free, fewer than {} MB", directory.string(),
                           free / megabyte, floor / megabyte);
    }

    bool is_clock_held() override { return sqlite::is_clock_held(database_, read_clocks()); }
    bool is_too_large() override { return house_.is_too_large(); }

    void pause(const std::string &device, Microseconds until) override {
        change([&] { pause_device(database_, device, until); });
    }
    void rename(const std::string &from, const std::string &to) override {
        change([&] { rename_device(database_, from, to); });
    }
    void forget(const std::string &device) override {
        change([&] { forget_device(database_, device); });
    }
    void accept(const std::string &device) override {
        change([&] { accept_device(database_, device); });
    }
    void accept_clock() override { sqlite::accept_clock(database_, read_clocks()); }

private:
    // Does the work in one transaction that readers can tell from none.
    template <typename Work> void change(Work work) {
        Transaction transaction(database_, Transaction::Kind::write);
        try {
            work();
            database_.statement("UPDATE meta SET value = value + 1 WHERE key = 'version'").run();
            transaction.commit();
        } catch (...) {
            series_.forget();
            throw;
        }
    }

    Database database_;
    SqliteSeries rows_;
    SeriesTable series_;
    RunWriter runs_;
    Housekeeper house_;
    std::optional<Backup> backup_; // that is under way
};

} // namespace

std::unique_ptr<Store> open_store(const std::string &path, const Retention &retention) {
    return std::make_unique<SqliteStore>(path, retention);
}

} // namespace dtfleet::sqlite
