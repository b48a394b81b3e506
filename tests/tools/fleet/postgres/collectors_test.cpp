// Several collectors, each a process, on one database and before one simulated fleet that knows who
// asked whom: what becomes of runs when any of them joins, leaves, is killed or stopped, and when
// the server dies or is away.
#include "../samples.h"
#include "fleet/commands/commands.h"
#include "fleet/engine/control.h"
#include "fleet/service/service.h"
#include "fleet/simulate/simulator.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/shared_inventory.h"
#include "host/failure.h"
#include "host/program.h"
#include "host/socket.h"
#include "server.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <future>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint32_t devices = 24;
constexpr uint32_t values = 50;

uint16_t free_port() { return dtctl::local_port(dtctl::listen_on(0, 1)); }

// A collector in a process of its own.
class Collector {
public:
    Collector(const std::string &directory, const std::string &address, const std::string &more)
        : port(free_port()), file_(directory + "/fleet.toml") {
        std::filesystem::create_directory(directory);
        std::ofstream(file_) << fmt::format("database = \"{}\"\nlisten = {}\n{}\n", address, port,
                                            more);
        start();
    }
    ~Collector() {
        if (pid_ != 0) (void)end(SIGKILL);
    }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    void start() {
        pid_ = ::fork();
        if (pid_ != 0) return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int to = ::open((file_ + ".log").c_str(), O_CREAT | O_APPEND | O_WRONLY, 0600);
        ::dup2(to, STDERR_FILENO);
        try {
            Service(file_).run();
        } catch (const std::exception &failure) {
            ::dprintf(STDERR_FILENO, "%s\n", failure.what());
            ::_exit(1);
        }
        ::_exit(0);
    }
    void signal(int number) const { ::kill(pid_, number); }
    int end(int number) {
        int status = 0;
        signal(number);
        ::waitpid(std::exchange(pid_, 0), &status, 0);
        return status;
    }
    std::optional<json> status() const { return request_if_running(socket(), {{"status", true}}); }
    json request(const json &what) const { return dtfleet::request(socket(), what); }
    const std::string &file() const { return file_; }

    const uint16_t port;

private:
    std::string socket() const {
        return std::filesystem::path(file_).parent_path() / "dtfleet.sock";
    }
    std::string file_;
    pid_t pid_ = 0;
};

struct Collectors : testing::Test {
    struct Ask {
        uint32_t device;
        uint16_t by;   // the collector's port,
        uint16_t open; // and that of the run which is open at the time; 0: none
        Time time;
    };

    void SetUp() override {
        if (!PostgresServer::is_installed()) GTEST_SKIP() << "there is no PostgreSQL server";
        address = postgres_server().make_database();
        postgres::migrate_database(address);
        SimulatorOptions options;
        options.devices = devices;
        options.values = values;
        options.port = 0;
        options.manners = manners;
        options.on_command = [this](uint32_t device, uint16_t by, uint16_t open) {
            asks.push_back({device, by, open, now()});
        };
        simulator.emplace(options, loop);
        std::ofstream(scratch / "all.toml") << "interval = \"1s\"\nkeep = \"all\"\n"
                                            << simulator->inventory();
        write_shared(address, checked(load_shared(scratch / "all.toml")));
    }

    // short times: a lease has 5 s
    Collector &join(const char *more = "limits = { silence = \"1s\", run = \"1s\" }") {
        const std::string directory = scratch / fmt::format("{}", all.size()).c_str();
        return *all.emplace_back(std::make_unique<Collector>(directory, address, more));
    }
    template <typename Done> void until(Done done) {
        Time look{};
        for (bool is_done = false; !is_done;) {
            loop.wait(std::min(simulator->next_pass(), now() + Time(20ms)));
            simulator->pass();
            if (look > now()) continue;
            look = now() + Time(50ms);
            is_done = done();
        }
    }
    void wait(Time time) {
        until([end = now() + time] { return now() > end; });
    }
    size_t asked(const Collector &by, size_t from = 0) const {
        std::set<uint32_t> seen;
        for (size_t i = from; i < asks.size(); ++i)
            if (asks[i].by == by.port) seen.insert(asks[i].device);
        return seen.size();
    }
    size_t asked_by_any(size_t from) const {
        std::set<uint32_t> seen;
        for (size_t i = from; i < asks.size(); ++i) seen.insert(asks[i].device);
        return seen.size();
    }
    std::vector<Ask> overlaps() const {
        std::vector<Ask> found;
        for (const Ask &ask : asks)
            if (ask.open != 0) found.push_back(ask);
        return found;
    }
    std::vector<std::string> rows(const std::string &sql) const {
        return PostgresServer::rows_of(address, sql);
    }
    uint64_t number(const std::string &sql) const { return std::stoull(rows(sql).at(0)); }
    uint64_t whole_runs() const {
        return number("SELECT count(*) FROM collection WHERE outcome = 0");
    }
    // Each run whole, once, and in the order of its device.
    void check_history() const {
        EXPECT_THAT(rows("SELECT run FROM collection GROUP BY run HAVING count(*) > 1"), IsEmpty());
        EXPECT_THAT(rows("SELECT id FROM collection GROUP BY id HAVING count(*) > 1"), IsEmpty());
        EXPECT_THAT(
            rows(fmt::format("SELECT id, cardinality(numbers) FROM collection "
                             "WHERE outcome = 0 AND command = 0 AND cardinality(numbers) <> {}",
                             values)),
            IsEmpty());
    }

    const Scratch scratch;
    Loop loop;
    std::vector<Manner> manners;
    std::optional<Simulator> simulator;
    std::vector<Ask> asks;
    std::string address;
    std::vector<std::unique_ptr<Collector>> all;
};

// Nobody is told of anybody.
TEST_F(Collectors, JoinShareLeaveAndAreReplaced) {
    Collector &first = join();
    until([&] { return asked(first) == devices; });
    Collector &second = join(), &third = join(), &fourth = join();
    const size_t joined = asks.size();
    until([&] {
        return asked(second, joined) > 0 && asked(third, joined) > 0 && asked(fourth, joined) > 0;
    });
    until([&] { return asked_by_any(joined) == devices; });
    until([&] { return (*second.status())["collectors"] == 4; });

    // By hand, whoever has its lease.
    auto answer = std::async([&] {
        for (;;) {
            const json told = first.request({{"ask", "sim000003"}, {"selftest", true}});
            if (told.value("error", "").find("another collector") == std::string::npos) return told;
        }
    });
    until([&] { return answer.wait_for(0s) == std::future_status::ready; });
    EXPECT_EQ(answer.get().value("outcome", ""), "whole");
    until([&] { return number("SELECT count(*) FROM collection WHERE command = 3") == 1; });

    EXPECT_EQ(first.end(SIGTERM), 0);
    const Time ended = now();
    wait(100ms); // what it had sent before
    const size_t left = asks.size();
    until([&] { return asked_by_any(left) == devices; });
    EXPECT_EQ(asked(first, left), 0U);
    // Who has ended asks nobody, even when its last commands lay on the way meanwhile.
    const auto is_of_ended = [&](const Ask &ask) {
        return ask.open == first.port && ask.time >= ended;
    };
    std::vector<Ask> asked_by_two = overlaps();
    std::erase_if(asked_by_two, is_of_ended);
    EXPECT_THAT(asked_by_two, IsEmpty());

    second.end(SIGKILL); // the devices that it was asking wait until its leases end
    third.end(SIGKILL);
    const size_t killed = asks.size();
    until([&] { return asked_by_any(killed) == devices; });
    EXPECT_EQ(asked(fourth, killed), devices);
    EXPECT_EQ(fourth.end(SIGTERM), 0);
    check_history();
    EXPECT_EQ(number("SELECT count(*) FROM device WHERE lease_until > clock() AND worker = (SELECT "
                     "max(worker) FROM device)"),
              0U)
        << "who leaves gives back";
}

// What is asked again while a run is open, is asked of a device that the stopped one still holds.
TEST_F(Collectors, StoppedPastItsLeasesOneComesBackAndHarmsNobody) {
    Collector &first = join(), &second = join();
    until([&] { return asked(first) > devices / 4 && asked(second) > devices / 4; });
    until([&] {
        const auto status = first.status();
        return status && (*status)["open"] > 0;
    });
    first.signal(SIGSTOP);
    const Time stopped = now();
    const size_t before = asks.size();
    until([&] { return asked(second, before) == devices; });
    first.signal(SIGCONT);
    const size_t continued = asks.size();
    until([&] { return asked(first, continued) > devices / 4; });
    wait(2s);
    for (const Ask &ask : overlaps()) {
        EXPECT_GT(ask.time, stopped);
        EXPECT_EQ(ask.open, first.port) << "it held that run, device " << ask.device;
        EXPECT_EQ(ask.by, second.port) << "device " << ask.device;
    }
    EXPECT_EQ(first.end(SIGTERM) + second.end(SIGTERM), 0);
    check_history();
    EXPECT_THAT(rows("SELECT name FROM device d WHERE last_ok <> (SELECT max(time) FROM collection "
                     "c WHERE c.device = d.id AND outcome = 0 AND NOT history)"),
                IsEmpty())
        << "what came late changed nothing";
}

// The same whatever is killed: no run twice or half, and none lost that was said to be stored.
TEST_F(Collectors, KilledAtAnyMomentTheyLoseNothingThatIsStored) {
    const char *wanted = std::getenv("DT_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 6;
    std::mt19937 random(static_cast<unsigned>(::getpid()));
    join();
    join();
    uint64_t stored = 0;
    for (int kill = 0; kill < kills; ++kill) {
        const size_t before = asks.size();
        until([&] { return asked_by_any(before) == devices; });
        wait(std::chrono::milliseconds(random() % 1000));
        Collector &victim = *all[static_cast<size_t>(kill) % 2];
        if (kill % 3 == 2) {
            postgres_server().stop(random() % 2 ? SIGKILL : SIGQUIT);
            wait(std::chrono::milliseconds(random() % 1000));
            postgres_server().start();
            continue;
        }
        if (const auto status = victim.status()) stored += (*status)["stored"].get<uint64_t>();
        victim.end(SIGKILL);
        victim.start();
    }
    for (const auto &collector : all) {
        until([&] {
            const auto status = collector->status();
            return status && (*status)["writing"] == 0 && (*status)["spool_runs"] == 0;
        });
        stored += (*collector->status())["stored"].get<uint64_t>();
    }
    EXPECT_GE(number("SELECT count(*) FROM collection"), stored);
    EXPECT_LE(whole_runs(), simulator->counts().runs);
    check_history();
    for (const Ask &ask : overlaps()) ADD_FAILURE() << ask.device << " was asked by two";
}

constexpr const char *with_grace = "outage_grace = \"1h\"\n"
                                   "limits = { silence = \"1s\", run = \"1s\" }";

// Away for some seconds, or as many as are asked for.
TEST_F(Collectors, WhileTheServerIsAwayTheyGoOnAndDeliverLater) {
    const char *wanted = std::getenv("DT_OUTAGE");
    Collector &first = join(with_grace), &second = join(with_grace);
    const auto held = [](const Collector &collector) {
        const auto status = collector.status();
        return status ? (*status)["held"].get<size_t>() : 0;
    };
    until([&] { // each has its share, and no more, which it would give back
        const size_t by_first = held(first), by_second = held(second);
        return by_first + by_second == devices && std::max(by_first, by_second) <= devices / 2 + 1;
    });
    postgres_server().stop(SIGKILL);
    wait(500ms);
    const size_t away = asks.size();
    until([&] { return asked_by_any(away) == devices; }); // all that is held is asked
    wait(std::chrono::seconds(wanted ? std::atoi(wanted) : 2));
    EXPECT_THAT((*first.status())["spool_runs"].get<int>(), Gt(0));
    EXPECT_EQ((*first.status())["not_ready"], "") << "it asks";
    first.end(SIGKILL);
    wait(1s);
    postgres_server().start();
    first.start();
    const auto is_through = [](const Collector &collector) {
        const auto status = collector.status();
        return status && (*status)["spool_runs"] == 0 && (*status)["away"] == "";
    };
    until([&] { return is_through(first) && is_through(second); });
    const size_t back = asks.size();
    until([&] { return asked(second, back) > devices / 4; });
    EXPECT_THAT(overlaps(), IsEmpty());
    EXPECT_EQ(first.end(SIGTERM) + second.end(SIGTERM), 0);
    // Lost may be what the killed one had open or in memory, of which it asks each device once.
    EXPECT_GE(whole_runs() + devices, simulator->counts().runs);
    EXPECT_LE(whole_runs(), simulator->counts().runs);
    check_history();
    EXPECT_THAT(rows("SELECT c.id FROM collection c JOIN collection e ON e.device = c.device AND "
                     "e.id > c.id AND e.time < c.time AND NOT e.history AND NOT c.history"),
                IsEmpty())
        << "each device's in their order";
}

TEST_F(Collectors, WithAFullSpoolTheyStopAskingAndSaySo) {
    const std::string small = std::string("spool = \"10kB\"\n") + with_grace;
    Collector &only = join(small.c_str());
    until([&] { return asked_by_any(0) == devices; });
    postgres_server().stop(SIGINT);
    until([&] {
        return (*only.status())["not_ready"].get<std::string>().find("the spool is full") == 0;
    });
    wait(1s); // what was under way
    const size_t full = asks.size();
    wait(2s);
    EXPECT_EQ(asks.size(), full);
    postgres_server().start();
    until([&] { return asked_by_any(full) == devices; });
    EXPECT_EQ(only.end(SIGTERM), 0);
    EXPECT_EQ(whole_runs(), simulator->counts().runs) << "nothing is lost";
    check_history();
}

// ---- the inventory in the database --------------------------------------------------------------

// What the command has printed; an ending other than in order stands in front.
std::string imported(const std::string &file, const std::string &config,
                     std::vector<std::string> more = {}) {
    std::vector<std::string> words{"dtfleet", "import", file, "--config", config};
    words.insert(words.end(), more.begin(), more.end());
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[0]);
        constexpr dtctl::Program program{"dtfleet", "", "", add_import};
        const int code =
            dtctl::run_program(program, static_cast<int>(arguments.size()), arguments.data());
        std::fflush(nullptr);
        ::_exit(code);
    }
    ::close(ends[1]);
    std::string text;
    char part[4096];
    for (ssize_t size; (size = ::read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(size));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? text : fmt::format("{}: {}", WEXITSTATUS(status), text);
}

std::string metrics_of(uint16_t port) {
    const dtctl::Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = dtctl::resolve("127.0.0.1", port);
    const std::string request = "GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n";
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0)
        return "";
    std::string text;
    char part[4096];
    for (ssize_t size; (size = ::recv(fd.get(), part, sizeof part, 0)) > 0;)
        text.append(part, static_cast<size_t>(size));
    return text;
}

// Leases last for more than a minute here: nothing waits for the end of one.
TEST_F(Collectors, FollowTheInventoryThatIsImported) {
    address = postgres_server().make_database();
    postgres::migrate_database(address);
    const uint16_t page = free_port();
    Collector &first = join(fmt::format("[web]\nbind = \"127.0.0.1:{}\"", page).c_str());
    Collector &second = join();
    const auto has = [](const Collector &collector, const char *key, const json &value) {
        const auto status = collector.status();
        return status && (*status)[key] == value;
    };
    const char *none = "the database has no inventory yet: `dtfleet import` brings one";
    until([&] { return has(first, "not_ready", none) && has(second, "not_ready", none); });

    const auto write = [&](std::vector<std::pair<uint32_t, const char *>> listed) {
        std::ofstream out(scratch / "some.toml");
        out << "keep = \"all\"\n";
        for (const auto &[device, more] : listed)
            out << fmt::format("[[device]]\nname = \"sim{:06}\"\naddress = \"{}\"\nport = {}\n{}\n",
                               device, Simulator::address_of(device), simulator->port(), more);
    };
    const auto import = [&] { return imported(scratch / "some.toml", first.file()); };
    const char *often = "interval = \"1s\"", *seldom = "interval = \"30d\"";
    write({{0, often}, {1, often}, {2, often}, {3, seldom}, {4, seldom}});
    EXPECT_EQ(imported(scratch / "some.toml", first.file(), {"--dry-run"}),
              "5 new: sim000000, sim000001, sim000002, sim000003, sim000004\n");
    EXPECT_TRUE(has(first, "inventory", 0));
    EXPECT_EQ(import(), "5 new: sim000000, sim000001, sim000002, sim000003, sim000004\n");
    const Time deadline = now() + Time(60s); // less than a lease
    until([&] { return asked_by_any(0) == 3; });
    until([&] { return has(first, "inventory", 1) && has(second, "inventory", 1); });
    EXPECT_TRUE(checked_inventory(second.file()).devices ==
                checked(load_shared(scratch / "some.toml")).devices);

    write({{1, often}, {2, often}, {3, often}, {4, seldom}, {5, often}});
    EXPECT_EQ(import(), "1 new: sim000005\n1 changed: sim000003\n1 gone: sim000000\n");
    until([&] { return has(first, "inventory", 2) && has(second, "inventory", 2); });
    wait(200ms); // what was under way
    const size_t changed = asks.size();
    std::map<uint32_t, size_t> times;
    until([&] {
        times.clear();
        for (size_t i = changed; i < asks.size(); ++i) ++times[asks[i].device];
        return times[1] > 2 && times[2] > 2 && times[3] > 2 && times[5] > 2;
    });
    EXPECT_EQ(times[0] + times[4], 0U);
    EXPECT_LT(now(), deadline);

    write({{1, often}, {1, often}});
    EXPECT_THAT(import(), testing::StartsWith("5: dtfleet: "));
    EXPECT_THAT(rows("SELECT value FROM meta WHERE key = 'inventory'"), ElementsAre("2"));
    EXPECT_THAT(imported(scratch / "some.toml", scratch / "all.toml"), HasSubstr("some.toml:"));
    write({{1, often}});
    std::ofstream(scratch / "own.toml") << "database = \"own.db\"";
    EXPECT_THAT(imported(scratch / "some.toml", scratch / "own.toml"),
                HasSubstr("the database is a file: its devices stand in the configuration"));

    std::string metrics;
    const auto tells_of = [&](const Collector &collector) {
        const std::string label = fmt::format(":{}\"}} ", collector.port);
        return metrics.find(label) != std::string::npos;
    };
    const auto rate = [&] { // of both
        double sum = 0;
        const std::string name = "\ndtfleet_collector_runs_per_second{";
        for (size_t at = 0; (at = metrics.find(name, at)) != std::string::npos; ++at)
            sum += std::stod(metrics.substr(metrics.find("} ", at) + 2));
        return sum;
    };
    until([&] {
        metrics = metrics_of(page);
        return tells_of(first) && tells_of(second) && rate() > 1;
    });
    EXPECT_THAT(metrics, HasSubstr("dtfleet_collectors 2\n"));

    // A name changes for all at once.
    EXPECT_EQ(second.request({{"rename", "sim000005"}, {"to", "pump"}}), json({{"done", true}}));
    until([&] { return has(first, "inventory", 3) && has(second, "inventory", 3); });
    EXPECT_TRUE(checked_inventory(first.file()).find("pump"));
    EXPECT_EQ(first.end(SIGTERM) + second.end(SIGTERM), 0);
    EXPECT_THAT(overlaps(), IsEmpty());
    EXPECT_THAT(rows("SELECT id FROM worker"), IsEmpty()) << "who leaves is gone at once";
}

// Others would wait for an hour.
TEST_F(Collectors, KilledAndStartedAgainOneHasItsDevicesAtOnce) {
    Collector &only = join("outage_grace = \"1h\"");
    until([&] { return asked(only) == devices; });
    only.end(SIGKILL);
    only.start();
    const size_t killed = asks.size();
    const Time deadline = now() + Time(60s);
    until([&] { return asked(only, killed) == devices || now() > deadline; });
    EXPECT_LT(now(), deadline);
    EXPECT_EQ(only.end(SIGTERM), 0);
}

} // namespace
} // namespace dtfleet
