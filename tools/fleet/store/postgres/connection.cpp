#include "fleet/store/postgres/connection.h"

#include "fleet/store/postgres/binary.h"
#include "host/failure.h"

#include <libpq-fe.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace dtfleet::postgres {
namespace {

using dtctl::Exit;
using dtctl::Failure;

// A server that is gone is noticed, and one that waits for us does not hold its locks for ever.
constexpr const char *session_settings =
    "SET client_min_messages = warning; SET lock_timeout = '10s'; SET statement_timeout = '60s';"
    "SET idle_in_transaction_session_timeout = '10s'; SET search_path = dtfleet";

// Told by the class of the error, its first two characters, or as a whole.
bool may_pass(std::string_view state) {
    constexpr std::array classes{"08", "53", "57", "58", "40"};
    constexpr std::array states{"55P03", "25006", "25P03"}; // locked, a standby, idle for too long
    const auto is_of = [&](std::string_view known) { return state.substr(0, 2) == known; };
    return state.empty() || std::any_of(classes.begin(), classes.end(), is_of) ||
           std::find(states.begin(), states.end(), state) != states.end();
}

// In one line.
std::string line_of(const char *message) {
    std::string text = message ? message : "";
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' '; };
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    return text;
}

std::string array_of_bytes(Type element, size_t count, const auto &bytes_of) {
    std::string out;
    put_array_head(out, count, element, false);
    for (size_t i = 0; i < count; ++i) put_sized(out, bytes_of(i));
    return out;
}

} // namespace

// ---- parameters ---------------------------------------------------------------------------------

void Parameters::put(unsigned type, std::string value) {
    types_.push_back(type);
    values_.emplace_back(std::move(value));
}

void Parameters::add(std::nullopt_t) {
    types_.push_back(0);
    values_.emplace_back();
}

void Parameters::add(int64_t number) {
    std::string out;
    put_64(out, static_cast<uint64_t>(number));
    put(static_cast<unsigned>(Type::int8), std::move(out));
}

void Parameters::add(std::string_view text) {
    put(static_cast<unsigned>(Type::text), std::string(text));
}

void Parameters::add(Bytes bytes) {
    put(static_cast<unsigned>(Type::bytea), std::string(bytes.bytes));
}

void Parameters::add(std::span<const int64_t> numbers) {
    std::string out;
    put_array_head(out, numbers.size(), Type::int8, false);
    for (const int64_t number : numbers) {
        put_32(out, 8);
        put_64(out, static_cast<uint64_t>(number));
    }
    put(static_cast<unsigned>(Type::int8_array), std::move(out));
}

void Parameters::add(std::span<const std::string> texts) {
    put(static_cast<unsigned>(Type::text_array),
        array_of_bytes(
            Type::text, texts.size(), [&](size_t i) -> const auto & { return texts[i]; }));
}

void Parameters::add(std::span<const Bytes> bytes) {
    put(static_cast<unsigned>(Type::bytea_array),
        array_of_bytes(Type::bytea, bytes.size(), [&](size_t i) { return bytes[i].bytes; }));
}

// ---- results ------------------------------------------------------------------------------------

void Result::Clear::operator()(pg_result *result) const { PQclear(result); }

int Result::rows() const { return PQntuples(result_.get()); }

int64_t Result::changed() const { return std::strtoll(PQcmdTuples(result_.get()), nullptr, 10); }

bool Result::is_null(int row, int column) const {
    return PQgetisnull(result_.get(), row, column) != 0;
}

std::string_view Result::bytes(int row, int column) const {
    return {PQgetvalue(result_.get(), row, column),
            static_cast<size_t>(PQgetlength(result_.get(), row, column))};
}

int64_t Result::number(int row, int column) const { return number_in(bytes(row, column)); }

std::optional<int64_t> Result::maybe(int row, int column) const {
    if (is_null(row, column)) return std::nullopt;
    return number(row, column);
}

std::vector<std::optional<int64_t>> Result::numbers(int row, int column) const {
    ArrayWalk walk(bytes(row, column));
    std::vector<std::optional<int64_t>> numbers(walk.size());
    for (auto &number : numbers)
        if (const auto element = walk.next()) number = number_in(*element);
    return numbers;
}

std::vector<std::optional<std::string_view>> Result::texts(int row, int column) const {
    ArrayWalk walk(bytes(row, column));
    std::vector<std::optional<std::string_view>> texts(walk.size());
    for (auto &text : texts) text = walk.next();
    return texts;
}

// ---- the connection -----------------------------------------------------------------------------

void Connection::Finish::operator()(pg_conn *connection) const { PQfinish(connection); }

Connection::Connection(std::string address, Access access)
    : address_(std::move(address)), access_(access) {}

// What the library says of an address that it does not understand shows all of it, and so the
// password.
void Connection::check_address() const {
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> parsed(
        PQconninfoParse(address_.c_str(), nullptr), PQconninfoFree);
    if (!parsed)
        throw Failure(Exit::usage, "the database: its address is none that libpq understands");
}

// A server that ended while nothing was asked of it has said so and closed its side, which takes
// two looks to be seen.
bool Connection::is_alive() const {
    return is_open() && PQconsumeInput(handle_.get()) == 1 && PQconsumeInput(handle_.get()) == 1 &&
           is_open();
}

bool Connection::is_open() const { return handle_ && PQstatus(handle_.get()) == CONNECTION_OK; }

void Connection::connect() {
    if (!is_alive()) open();
}

// What the address itself says comes last, and so it holds.
void Connection::open() {
    check_address();
    const std::array<const char *, 9> names{
        "application_name", "connect_timeout", "client_encoding",
        "tcp_user_timeout", "keepalives_idle", "keepalives_interval",
        "keepalives_count", "dbname",          nullptr};
    const std::array<const char *, 9> values{"dtfleet", "5", "UTF8",           "10000", "5",
                                             "2",       "3", address_.c_str(), nullptr};
    handle_.reset(PQconnectdbParams(names.data(), values.data(), 1));
    ++session_;
    if (!is_open()) {
        const std::string reason = line_of(handle_ ? PQerrorMessage(handle_.get()) : "no memory");
        handle_.reset();
        throw Unavailable("the database: " + reason);
    }
    PQsetNoticeProcessor(
        handle_.get(), [](void *, const char *) {}, nullptr);
    execute(session_settings);
    if (access_ == Access::read) execute("SET default_transaction_read_only = on");
}

void Connection::fail(const pg_result *result) {
    const char *field = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    const std::string state = field ? field : "";
    const char *primary = result ? PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
    const std::string text =
        "the database: " + line_of(primary ? primary : PQerrorMessage(handle_.get()));
    if (PQstatus(handle_.get()) != CONNECTION_OK) handle_.reset();
    if (state == "40001" || state == "40P01") throw Conflict(text);
    if (!handle_ || may_pass(state)) throw Unavailable(text);
    throw Failure(state.starts_with("XX") ? Exit::broken : Exit::failed, text);
}

Result Connection::checked(pg_result *result) {
    Result owned(result);
    switch (PQresultStatus(result)) {
    case PGRES_COMMAND_OK:
    case PGRES_TUPLES_OK:
    case PGRES_EMPTY_QUERY:
    case PGRES_COPY_IN:
        return owned;
    default:
        fail(result);
    }
}

Result Connection::query(const char *sql, const Parameters &parameters) {
    if (!is_open()) open();
    std::vector<const char *> values;
    std::vector<int> lengths;
    const std::vector<int> formats(parameters.values_.size(), 1);
    for (const auto &value : parameters.values_) {
        values.push_back(value ? value->data() : nullptr);
        lengths.push_back(value ? static_cast<int>(value->size()) : 0);
    }
    return checked(PQexecParams(handle_.get(), sql, static_cast<int>(values.size()),
                                parameters.types_.data(), values.data(), lengths.data(),
                                formats.data(), 1));
}

std::optional<int64_t> Connection::number_in(const Result &result) {
    return result.rows() == 0 ? std::nullopt : result.maybe(0, 0);
}

void Connection::execute(const std::string &sql) {
    if (!is_open()) open();
    checked(PQexec(handle_.get(), sql.c_str()));
}

// ---- COPY ---------------------------------------------------------------------------------------

void Connection::begin_copy(const char *sql) {
    if (!is_open()) open();
    checked(PQexec(handle_.get(), sql));
    std::string head("PGCOPY\n\377\r\n\0", 11);
    put_32(head, 0); // flags
    put_32(head, 0); // extension
    put(head);
}

void Connection::put(std::string_view data) {
    if (PQputCopyData(handle_.get(), data.data(), static_cast<int>(data.size())) != 1)
        fail(nullptr);
}

void Connection::end_copy() {
    put("\377\377");
    if (PQputCopyEnd(handle_.get(), nullptr) != 1) fail(nullptr);
    Result last = checked(PQgetResult(handle_.get()));
    while (pg_result *more = PQgetResult(handle_.get())) last = Result(more);
}

void Connection::roll_back() noexcept {
    if (!handle_ || PQtransactionStatus(handle_.get()) == PQTRANS_IDLE) return;
    // In the middle of a COPY, or of who knows what, there is no way back but a new connection.
    const bool is_waiting = PQtransactionStatus(handle_.get()) == PQTRANS_ACTIVE;
    const Result result(is_waiting ? nullptr : PQexec(handle_.get(), "ROLLBACK"));
    if (is_waiting || PQtransactionStatus(handle_.get()) != PQTRANS_IDLE) handle_.reset();
}

// ---- transactions -------------------------------------------------------------------------------

Transaction::Transaction(Connection &connection, Kind kind) : connection_(connection) {
    connection_.execute(kind == Kind::read
                            ? "BEGIN TRANSACTION ISOLATION LEVEL REPEATABLE READ READ ONLY"
                            : "BEGIN TRANSACTION ISOLATION LEVEL READ COMMITTED");
}

Transaction::~Transaction() {
    if (open_) connection_.roll_back();
}

void Transaction::commit(const std::string &sql) {
    connection_.execute(sql);
    open_ = false;
}

} // namespace dtfleet::postgres
