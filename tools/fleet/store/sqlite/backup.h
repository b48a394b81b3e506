// A copy of a database, made bit by bit.
#pragma once

#include "fleet/store/sqlite/database.h"

#include <memory>
#include <optional>
#include <string>

struct sqlite3_backup;

namespace dtfleet::sqlite {

// What its own connection writes meanwhile gets into the copy, too. Each transaction of another one
// makes it begin anew.
class Backup {
public:
    // Both must outlive it. Throws dtctl::Failure when the file is there, or cannot be made.
    Backup(Database &from, const std::string &file);

    // Without an end, nothing of it remains.
    ~Backup();
    Backup(const Backup &) = delete;
    Backup &operator=(const Backup &) = delete;

    const std::string &file() const { return file_; }

    // Copies for well under a second, and holds the database for no longer. True: there is more to
    // do; false: the file is there. Throws dtctl::Failure.
    bool step();

    // In pages; and how often it began anew without coming farther than before.
    uint64_t done() const { return done_; }
    uint64_t all() const { return all_; }
    uint64_t restarts() const { return restarts_; }

private:
    struct Finish {
        void operator()(sqlite3_backup *backup) const;
    };

    [[noreturn]] void fail(int code) const;
    void publish();

    std::string file_;
    std::string part_; // that is being written
    std::optional<Database> to_;
    std::unique_ptr<sqlite3_backup, Finish> backup_;
    int pages_ = 1024; // of the next step
    uint64_t done_ = 0;
    uint64_t all_ = 0;
    uint64_t restarts_ = 0;
};

} // namespace dtfleet::sqlite
