#include "server.h"

#include <libpq-fe.h>

#include <fcntl.h>
#include <glob.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using Connection = std::unique_ptr<PGconn, decltype(&PQfinish)>;

// Debian's place, the newest version first; empty: there is none.
std::string programs() {
    glob_t found{};
    std::string path;
    if (::glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &found) == 0)
        path = std::filesystem::path(found.gl_pathv[found.gl_pathc - 1]).parent_path();
    ::globfree(&found);
    return path;
}

// The server refuses to run as root.
const passwd *ordinary_user() { return ::geteuid() == 0 ? ::getpwnam("nobody") : nullptr; }

pid_t start_program(const std::string &program, std::vector<std::string> words,
                    const std::string &directory) {
    words.insert(words.begin(), programs() + "/" + program);
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const passwd *user = ordinary_user();
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child != 0) return child;
    const int log = ::open((directory + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    ::dup2(log, 1);
    ::dup2(log, 2);
    if (user && (::setgroups(0, nullptr) != 0 || ::setgid(user->pw_gid) != 0 ||
                 ::setuid(user->pw_uid) != 0))
        ::_exit(1);
    ::prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (::getppid() != parent || ::chdir(directory.c_str()) != 0) ::_exit(1);
    ::execv(arguments[0], arguments.data());
    ::_exit(1);
}

// Truths as numbers, bytes as they are.
std::string text_of(const PGresult *result, int row, int column) {
    constexpr Oid truth = 16, bytea = 17;
    const char *value = PQgetvalue(result, row, column);
    if (PQftype(result, column) == truth) return *value == 't' ? "1" : *value == 'f' ? "0" : "";
    if (PQftype(result, column) != bytea) return value;
    size_t size = 0;
    const std::unique_ptr<unsigned char, decltype(&PQfreemem)> bytes(
        PQunescapeBytea(reinterpret_cast<const unsigned char *>(value), &size), PQfreemem);
    return {reinterpret_cast<const char *>(bytes.get()), size};
}

// Of a process and of those of its children that have ended, in clock ticks.
uint64_t ticks_of(const std::string &pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream rest(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    std::string word;
    for (int field = 3; field < 14; ++field) rest >> word;
    uint64_t sum = 0;
    for (uint64_t ticks = 0, i = 0; i < 4 && rest >> ticks; ++i) sum += ticks;
    return sum;
}

Connection connect(const std::string &address) { return {PQconnectdb(address.c_str()), PQfinish}; }

} // namespace

bool PostgresServer::is_installed() { return !programs().empty(); }

PostgresServer::PostgresServer() {
    std::string name = std::filesystem::temp_directory_path() / "fleetpg.XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no directory for the server");
    directory_ = name;
    if (const passwd *user = ordinary_user())
        if (::chown(name.c_str(), user->pw_uid, user->pw_gid) != 0)
            throw std::runtime_error("the directory cannot be given away");
    int status = 0;
    ::waitpid(start_program("initdb",
                            {"-D", directory_ + "/data", "-U", "fleet", "-A", "trust", "-E", "UTF8",
                             "--locale=C", "--no-sync", "--no-instructions"},
                            directory_),
              &status, 0);
    if (status != 0) throw std::runtime_error("initdb failed, see " + directory_ + "/log");
    start();
}

PostgresServer::~PostgresServer() {
    stop(SIGQUIT);
    std::filesystem::remove_all(directory_);
}

// What a commit has written must survive the end of the process, not that of the machine. One that
// was killed leaves processes behind for a moment, and nothing starts beside them.
void PostgresServer::start() {
    const std::string address = address_of("postgres");
    for (int attempts = 0;; ++attempts) {
        server_ = start_program("postgres",
                                {"-D", directory_ + "/data", "-k", directory_, "-h", "", "-F", "-c",
                                 "max_connections=50", "-c", "shared_buffers=32MB"},
                                directory_);
        bool is_running = true;
        while (is_running && PQstatus(connect(address).get()) != CONNECTION_OK) {
            std::this_thread::sleep_for(20ms);
            is_running = ::waitpid(server_, nullptr, WNOHANG) == 0;
        }
        if (is_running) return;
        if (attempts == 100)
            throw std::runtime_error("the server ended, see " + directory_ + "/log");
    }
}

void PostgresServer::stop(int signal) {
    if (server_ < 0) return;
    ::kill(server_, signal);
    ::waitpid(server_, nullptr, 0);
    server_ = -1;
}

double PostgresServer::processor_time() const {
    const std::string pid = std::to_string(server_);
    uint64_t ticks = ticks_of(pid);
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    for (std::string child; children >> child;) ticks += ticks_of(child);
    return static_cast<double>(ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::string PostgresServer::make_database() {
    const std::string name = "fleet" + std::to_string(++databases_);
    rows_of(address_of("postgres"), "CREATE DATABASE " + name);
    return address_of(name);
}

std::string PostgresServer::copy_database(const std::string &address) {
    const std::string name = rows_of(address, "SELECT current_database()").front();
    const std::string copy = "fleet" + std::to_string(++databases_);
    rows_of(address_of("postgres"), "CREATE DATABASE " + copy + " TEMPLATE " + name);
    return address_of(copy);
}

std::string PostgresServer::address_of(const std::string &database, const std::string &user) const {
    return "postgresql://" + user + "@/" + database + "?host=" + directory_;
}

std::vector<std::string> PostgresServer::rows_of(const std::string &address,
                                                 const std::string &sql) {
    const Connection connection = connect(address);
    PQclear(PQexec(connection.get(), "SET search_path = dtfleet"));
    const std::unique_ptr<PGresult, decltype(&PQclear)> result(
        PQexec(connection.get(), sql.c_str()), PQclear);
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK)
        throw std::runtime_error(PQerrorMessage(connection.get()));
    std::vector<std::string> rows;
    for (int row = 0; row < PQntuples(result.get()); ++row) {
        std::string &text = rows.emplace_back();
        for (int column = 0; column < PQnfields(result.get()); ++column) {
            if (column != 0) text += '|';
            text += text_of(result.get(), row, column);
        }
    }
    return rows;
}

PostgresServer &postgres_server() {
    static PostgresServer server;
    return server;
}

} // namespace dtfleet
