// A PostgreSQL server of the test's own: on a socket in a temporary directory, as an ordinary user.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace dtfleet {

class PostgresServer {
public:
    // Where the machine has none, this is false and nothing else may be called.
    static bool is_installed();

    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer &) = delete;
    PostgresServer &operator=(const PostgresServer &) = delete;

    void start();          // and waits until it answers
    void stop(int signal); // SIGINT: in order; SIGQUIT: at once; SIGKILL: as when it crashes

    // The address of a new and empty database.
    std::string make_database();
    std::string copy_database(const std::string &address); // that nobody uses
    std::string address_of(const std::string &database, const std::string &user = "fleet") const;

    // The processor's time that all of its processes have taken so far, in seconds.
    double processor_time() const;

    // What a query answers, each row as one text: its columns with a bar between them.
    static std::vector<std::string> rows_of(const std::string &address, const std::string &sql);

private:
    std::string directory_;
    pid_t server_ = -1;
    int databases_ = 0;
};

// One for all tests of this process, started by the first that wants it.
PostgresServer &postgres_server();

} // namespace dtfleet
