#include "fleet/store/sqlite/backup.h"

#include "host/failure.h"
#include "host/fd.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace dtfleet::sqlite {
namespace {

using dtctl::Exit;
using dtctl::Failure;
using Clock = std::chrono::steady_clock;

constexpr int most_pages = 65'536; // 256 MB
constexpr std::chrono::milliseconds long_step(200);

[[noreturn]] void fail_with_errno(const std::string &file) {
    throw Failure(Exit::failed, file + ": " + std::strerror(errno));
}

// The name that is being written has this process's number: two backups do not meet, and what one
// that was killed has left is told from a whole file.
std::string name_of_part(const std::string &file) {
    if (std::filesystem::exists(std::filesystem::symlink_status(file)))
        throw Failure(Exit::failed, file + ": this file exists, and is left as it is");
    std::string part = fmt::format("{}.{}.part", file, ::getpid());
    ::unlink(part.c_str());
    const dtctl::Fd made(::open(part.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0640));
    if (!made) fail_with_errno(file);
    return part;
}

void flush(const std::string &path) {
    const dtctl::Fd opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened || ::fsync(opened.get()) != 0) fail_with_errno(path);
}

// Onto nothing that is there, as far as the file system can promise it.
void move(const std::string &from, const std::string &to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
    if (errno != EINVAL || ::rename(from.c_str(), to.c_str()) != 0) fail_with_errno(to);
}

} // namespace

// The unfinished file needs no journal: it is whole at the end, or nobody sees it.
Backup::Backup(Database &from, const std::string &file)
    : file_(file), part_(name_of_part(file)), to_(std::in_place, part_, Database::Access::write) {
    to_->execute("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF");
    backup_.reset(sqlite3_backup_init(to_->handle(), "main", from.handle(), "main"));
    if (!backup_) fail(sqlite3_errcode(to_->handle()));
}

Backup::~Backup() {
    if (!part_.empty()) ::unlink(part_.c_str());
}

void Backup::Finish::operator()(sqlite3_backup *backup) const { sqlite3_backup_finish(backup); }

void Backup::fail(int code) const {
    throw Failure(Exit::failed, file_ + ": " + sqlite3_errstr(code));
}

bool Backup::step() {
    const auto begun = Clock::now();
    const int code = sqlite3_backup_step(backup_.get(), pages_);
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED) return true;
    if (code != SQLITE_OK && code != SQLITE_DONE) fail(code);
    const uint64_t before = done_;
    all_ = static_cast<uint64_t>(sqlite3_backup_pagecount(backup_.get()));
    done_ = all_ - static_cast<uint64_t>(sqlite3_backup_remaining(backup_.get()));
    if (code == SQLITE_OK && done_ <= before) ++restarts_;
    const auto took = Clock::now() - begun;
    if (took < long_step) pages_ = std::min(2 * pages_, most_pages);
    if (took > 2 * long_step) pages_ = std::max(pages_ / 2, 1);
    if (code == SQLITE_DONE) publish();
    return code != SQLITE_DONE;
}

// The copy is opened anew to take it out of the mode that needs files beside it: so it can be read
// where nothing may be written.
void Backup::publish() {
    const int code = sqlite3_backup_finish(backup_.release());
    if (code != SQLITE_OK) fail(code);
    to_.emplace(part_, Database::Access::write).execute("PRAGMA journal_mode = DELETE");
    to_.reset();
    flush(part_);
    move(part_, file_);
    part_.clear();
    flush(std::filesystem::absolute(file_).parent_path());
}

} // namespace dtfleet::sqlite
