// The handles of one SQLite database, and what its errors mean to the store.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace dtfleet::sqlite {

// Bytes that are no text, for a BLOB.
struct Bytes {
    std::string_view bytes;
};

// A prepared statement of a Database, which must outlive it. Columns and parameters count from 0
// and 1, as SQLite's. Every function that runs it throws as Database does.
class Statement {
public:
    Statement() = default;
    Statement(sqlite3 *database, std::string_view sql);

    void bind(int at, int64_t number);
    void bind(int at, Bytes value); // the bytes must stay until the next reset
    void bind(int at, std::string_view text);
    void bind_null(int at);

    // Goes to the next row; false behind the last one.
    bool step();

    // Ends the run: what it read is no longer held, and it can be run again.
    void reset() noexcept;

    // All of it in one call: the parameters, and for run() a statement without rows.
    template <typename... Values> Statement &with(const Values &...values) {
        reset();
        int at = 0;
        (bind_one(++at, values), ...);
        return *this;
    }
    template <typename... Values> void run(const Values &...values) {
        with(values...);
        run_bound();
    }
    void run_bound() {
        while (step()) {
        }
        reset();
    }

    bool is_null(int column) const;
    bool is_number(int column) const;
    int64_t number(int column) const;
    std::optional<int64_t> maybe(int column) const; // nothing: NULL
    int columns() const;
    std::string_view bytes(int column) const; // of a text or BLOB; until the next step

private:
    template <typename Value> void bind_one(int at, const Value &value) {
        if constexpr (std::is_same_v<Value, std::nullptr_t>)
            bind_null(at);
        else if constexpr (std::is_integral_v<Value>)
            bind(at, static_cast<int64_t>(value));
        else
            bind(at, value);
    }

    struct Finalize {
        void operator()(sqlite3_stmt *statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// Throws Unavailable for what may pass (locked, full, no file left to open, ...), dtctl::Failure
// with the file's name for the rest: Exit::failed for values that cannot be stored, Exit::broken
// for a database that cannot be used.
class Database {
public:
    enum class Access {
        make,  // reads and writes, and makes the file where there is none
        write, // reads and writes
        read,  // reads alone, as a second line of defence also by SQLite's own switch
    };
    Database(const std::string &path, Access access);

    const std::string &path() const { return path_; }
    sqlite3 *handle() const { return handle_.get(); }

    // SQL without rows, one statement or several.
    void execute(const char *sql);

    // The statement for this SQL, prepared once and kept; reset. The SQL must be a constant, for it
    // is known by its address.
    Statement &statement(const char *sql);

    // The one number that the SQL answers; `otherwise` where it has no row or NULL.
    int64_t number(const char *sql, int64_t otherwise = 0);

    void reset_statements() noexcept; // those that are kept

    bool has_moved() const; // no file of this name is this one any more

    int64_t changes() const; // rows of the last statement
    int64_t last_id() const; // of the last row that got its id from SQLite

private:
    struct Close {
        void operator()(sqlite3 *database) const;
    };
    std::string path_;
    std::unique_ptr<sqlite3, Close> handle_;
    std::map<const char *, Statement> statements_; // by the address of their SQL
};

// A transaction that ends as nothing happened unless it is committed. A writing one waits for the
// right to write at once, so that it cannot fail for that later.
class Transaction {
public:
    enum class Kind { read, write };
    Transaction(Database &database, Kind kind);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    void commit();

private:
    Database &database_;
    bool open_ = true;
};

} // namespace dtfleet::sqlite
