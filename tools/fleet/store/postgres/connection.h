// A connection to one PostgreSQL database, and what its errors mean to the store.
#pragma once

#include "fleet/store/store.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct pg_conn;
struct pg_result;

namespace dtfleet::postgres {

// Bytes that are no text, for a bytea.
struct Bytes {
    std::string_view bytes;
};

// The parameters of one statement: numbers as bigint, texts as text, and arrays of them.
class Parameters {
public:
    template <typename... Values> explicit Parameters(const Values &...values) {
        (add(values), ...);
    }

    void add(std::nullopt_t);
    void add(int64_t number);
    void add(bool flag) { add(int64_t{flag}); }
    void add(std::string_view text);
    void add(const std::string &text) { add(std::string_view(text)); }
    void add(Bytes bytes);
    void add(std::span<const int64_t> numbers);
    void add(std::span<const std::string> texts);
    void add(std::span<const Bytes> bytes);
    template <typename Value> void add(const std::optional<Value> &value) {
        if (value)
            add(*value);
        else
            add(std::nullopt);
    }
    template <typename Value> void add(const std::vector<Value> &values) {
        add(std::span<const Value>(values));
    }

private:
    friend class Connection;
    void put(unsigned type, std::string value);

    std::vector<unsigned> types_;
    std::vector<std::optional<std::string>> values_;
};

// What a statement answered. Rows and columns count from 0.
class Result {
public:
    explicit Result(pg_result *result) : result_(result) {}

    int rows() const;
    int64_t changed() const; // rows, by a statement that answers none
    bool is_null(int row, int column) const;
    int64_t number(int row, int column) const; // of an integer of any size, or a truth; NULL: 0
    std::optional<int64_t> maybe(int row, int column) const; // nothing: NULL
    std::string_view bytes(int row, int column) const; // of a text, bytea or uuid; NULL: empty

    // Of an array of integers or of texts or bytea; NULL is none.
    std::vector<std::optional<int64_t>> numbers(int row, int column) const;
    std::vector<std::optional<std::string_view>> texts(int row, int column) const;

private:
    struct Clear {
        void operator()(pg_result *result) const;
    };
    std::unique_ptr<pg_result, Clear> result_;
};

// A row of a result, which must outlive it.
class ResultRow {
public:
    ResultRow(const Result &result, int row) : result_(result), row_(row) {}
    bool is_null(int column) const { return result_.is_null(row_, column); }
    int64_t number(int column) const { return result_.number(row_, column); }
    std::string_view bytes(int column) const { return result_.bytes(row_, column); }

private:
    const Result &result_;
    int row_;
};

// Somebody else has changed what a transaction was made from; it can be made anew from what is
// there now.
class Conflict : public Unavailable {
public:
    using Unavailable::Unavailable;
};

// Throws Unavailable for what may pass (not connected, overloaded, full, ...), Conflict, and
// dtctl::Failure for the rest. Messages have no passwords in them. After an error the connection is
// outside of any transaction, made anew when it was lost.
class Connection {
public:
    enum class Access {
        write,
        read, // as a second line of defence, whatever the role may do
    };

    // An address as libpq knows it: "postgresql://...".
    explicit Connection(std::string address, Access access = Access::write);

    // Connects, if that has not been done or the connection was lost. So do all that follow, but
    // they find only by failing that the server has gone since it answered last.
    void connect();

    // Grows with each connection: what a session keeps, such as temporary tables, is gone.
    uint64_t session() const { return session_; }

    Result query(const char *sql, const Parameters &parameters);
    template <typename... Values> Result query(const char *sql, const Values &...values) {
        return query(sql, Parameters(values...));
    }

    // The one number that the SQL answers; nothing without a row or for NULL.
    template <typename... Values>
    std::optional<int64_t> number(const char *sql, const Values &...values) {
        return number_in(query(sql, Parameters(values...)));
    }

    // SQL without parameters, one statement or several, all sent at once: the server goes through
    // with them whatever becomes of this side.
    void execute(const std::string &sql);

    // Rows for a COPY ... FROM STDIN (FORMAT binary): its begin, pieces of it, its end.
    void begin_copy(const char *sql);
    void put(std::string_view data);
    void end_copy();

    // Ends a transaction that has failed. Never throws.
    void roll_back() noexcept;

private:
    struct Finish {
        void operator()(pg_conn *connection) const;
    };
    void check_address() const;
    bool is_alive() const;
    bool is_open() const;
    void open();
    static std::optional<int64_t> number_in(const Result &result);
    Result checked(pg_result *result);
    [[noreturn]] void fail(const pg_result *result);

    std::string address_;
    Access access_;
    std::unique_ptr<pg_conn, Finish> handle_;
    uint64_t session_ = 0;
};

// Ends as if nothing had happened unless it is committed.
class Transaction {
public:
    enum class Kind { read, write };
    Transaction(Connection &connection, Kind kind);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    void commit() { commit("COMMIT"); }

    // With some last statements, which must end in COMMIT: they are sent as one.
    void commit(const std::string &sql);

private:
    Connection &connection_;
    bool open_ = true;
};

} // namespace dtfleet::postgres
