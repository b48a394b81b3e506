#include "fleet/store/sqlite/migration.h"

#include "fleet/store/sqlite/backup.h"
#include "fleet/store/store.h"
#include "host/failure.h"

#include <fmt/format.h>

#include <filesystem>

namespace dtfleet::sqlite {
namespace {

int64_t version_of(Database &database) { return database.number("PRAGMA user_version"); }

// What keeps it from being written, a full disk above all, may pass.
void copy(Database &database, const std::string &file) {
    if (std::filesystem::exists(file)) return;
    try {
        Backup backup(database, file);
        while (backup.step()) {
        }
    } catch (const dtctl::Failure &failure) {
        throw Unavailable(failure.what());
    }
}

} // namespace

void migrate(Database &database, std::span<const char *const> steps) {
    const auto newest = static_cast<int64_t>(steps.size()) + 1;
    if (version_of(database) >= newest) return;
    copy(database, fmt::format("{}.v{}", database.path(), version_of(database)));
    for (;;) {
        Transaction transaction(database, Transaction::Kind::write);
        const int64_t version = version_of(database); // another process may have done it
        if (version >= newest) return;
        database.execute(steps[static_cast<size_t>(version - 1)]);
        database.execute(fmt::format("PRAGMA user_version = {}", version + 1).c_str());
        transaction.commit();
    }
}

} // namespace dtfleet::sqlite
