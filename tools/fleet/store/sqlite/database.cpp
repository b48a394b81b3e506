#include "fleet/store/sqlite/database.h"

#include "fleet/store/store.h"
#include "host/failure.h"
#include "host/socket.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace dtfleet::sqlite {
namespace {

using dtctl::Exit;
using dtctl::Failure;

constexpr int patience = 250; // milliseconds for somebody else's transaction

bool may_pass(int code) {
    switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
    case SQLITE_PROTOCOL:
    case SQLITE_CANTOPEN:
    case SQLITE_INTERRUPT:
    case SQLITE_READONLY: // the file system may have become so after an error
    case SQLITE_PERM:
        return true;
    default:
        return false;
    }
}

// What was to be written cannot be, whatever the database.
bool is_unfit(int code) {
    switch (code & 0xff) {
    case SQLITE_TOOBIG:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void fail(sqlite3 *database) {
    const int code = sqlite3_extended_errcode(database);
    const char *path = sqlite3_db_filename(database, "main");
    const std::string text = std::string(path ? path : "?") + ": " + sqlite3_errmsg(database);
    if (may_pass(code)) throw Unavailable(text);
    throw Failure(is_unfit(code) ? Exit::failed : Exit::broken, text);
}

void check(int code, sqlite3 *database) {
    if (code != SQLITE_OK) fail(database);
}

// What the system is out of now, and may have again.
bool is_short(int error) {
    return error == ENOSPC || error == EDQUOT || error == EMFILE || error == ENFILE ||
           error == ENOMEM;
}

// SQLite needs files of its own beside the database, and its own mode would keep the members of a
// group from writing: those that it makes get that of this one.
void make_file(const std::string &path) {
    const auto directory = std::filesystem::absolute(path).parent_path();
    if (::access(directory.c_str(), W_OK | X_OK) != 0)
        throw Failure(Exit::failed, directory.string() + ": " + std::strerror(errno));
    const dtctl::Fd made(::open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0660));
    if (!made && is_short(errno)) throw Unavailable(path + ": " + std::strerror(errno));
}

} // namespace

// ---- statements ---------------------------------------------------------------------------------

Statement::Statement(sqlite3 *database, std::string_view sql) {
    sqlite3_stmt *made = nullptr;
    check(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()),
                             SQLITE_PREPARE_PERSISTENT, &made, nullptr),
          database);
    statement_.reset(made);
}

void Statement::Finalize::operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }

void Statement::bind(int at, int64_t number) {
    check(sqlite3_bind_int64(statement_.get(), at, number), sqlite3_db_handle(statement_.get()));
}

// A view of nothing may have no address, which SQLite would take for NULL.
void Statement::bind(int at, Bytes value) {
    const char *data = value.bytes.empty() ? "" : value.bytes.data();
    check(sqlite3_bind_blob64(statement_.get(), at, data, value.bytes.size(), SQLITE_STATIC),
          sqlite3_db_handle(statement_.get()));
}

void Statement::bind(int at, std::string_view text) {
    const char *data = text.empty() ? "" : text.data();
    check(sqlite3_bind_text64(statement_.get(), at, data, text.size(), SQLITE_STATIC, SQLITE_UTF8),
          sqlite3_db_handle(statement_.get()));
}

void Statement::bind_null(int at) {
    check(sqlite3_bind_null(statement_.get(), at), sqlite3_db_handle(statement_.get()));
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    sqlite3 *database = sqlite3_db_handle(statement_.get());
    try {
        fail(database);
    } catch (...) {
        reset(); // what failed must not keep its locks
        throw;
    }
}

void Statement::reset() noexcept { sqlite3_reset(statement_.get()); }

bool Statement::is_null(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

bool Statement::is_number(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_INTEGER;
}

int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::optional<int64_t> Statement::maybe(int column) const {
    if (is_null(column)) return std::nullopt;
    return number(column);
}

int Statement::columns() const { return sqlite3_column_count(statement_.get()); }

std::string_view Statement::bytes(int column) const {
    const void *data = sqlite3_column_blob(statement_.get(), column);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column));
    return data ? std::string_view(static_cast<const char *>(data), size) : std::string_view();
}

// ---- the database -------------------------------------------------------------------------------

Database::Database(const std::string &path, Access access) : path_(path) {
    constexpr int flags[] = {SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, SQLITE_OPEN_READWRITE,
                             SQLITE_OPEN_READONLY};
    if (access == Access::make) make_file(path);
    sqlite3 *opened = nullptr;
    const int code = sqlite3_open_v2(
        path.c_str(), &opened, flags[static_cast<int>(access)] | SQLITE_OPEN_NOMUTEX, nullptr);
    handle_.reset(opened);
    if (code != SQLITE_OK) throw Failure(Exit::failed, path + ": " + sqlite3_errstr(code));
    check(sqlite3_extended_result_codes(opened, 1), opened);
    check(sqlite3_busy_timeout(opened, patience), opened);
    // SQLite opens what it may not write for reading.
    if (access != Access::read && sqlite3_db_readonly(opened, "main") == 1)
        throw Failure(Exit::failed, path + ": this file may not be written");
    if (access == Access::read) execute("PRAGMA query_only = 1");
}

void Database::Close::operator()(sqlite3 *database) const { sqlite3_close_v2(database); }

void Database::execute(const char *sql) {
    check(sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr), handle_.get());
}

Statement &Database::statement(const char *sql) {
    auto found = statements_.find(sql);
    if (found == statements_.end())
        found = statements_.emplace(sql, Statement(handle_.get(), sql)).first;
    found->second.reset();
    return found->second;
}

int64_t Database::number(const char *sql, int64_t otherwise) {
    Statement statement(handle_.get(), sql);
    return statement.step() && !statement.is_null(0) ? statement.number(0) : otherwise;
}

void Database::reset_statements() noexcept {
    for (auto &[sql, statement] : statements_) statement.reset();
}

bool Database::has_moved() const {
    int moved = 0;
    sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return moved != 0;
}

int64_t Database::changes() const { return sqlite3_changes64(handle_.get()); }

int64_t Database::last_id() const { return sqlite3_last_insert_rowid(handle_.get()); }

// ---- transactions -------------------------------------------------------------------------------

Transaction::Transaction(Database &database, Kind kind) : database_(database) {
    database_.execute(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN");
}

// SQLite may have ended it by itself already, and then has nothing to roll back. A statement that
// was left in the middle would keep what it read.
Transaction::~Transaction() {
    if (!open_) return;
    database_.reset_statements();
    sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

} // namespace dtfleet::sqlite
