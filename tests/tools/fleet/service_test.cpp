// The whole service in a process of its own, which may be killed, beside a simulated fleet in
// another.
#include "fleet/service/service.h"

#include "engine.h"
#include "fleet/simulate/simulator.h"
#include "host/failure.h"
#include "host/file.h"
#include "host/socket.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class Child {
public:
    explicit Child(const std::function<int()> &body) : pid_(::fork()) {
        if (pid_ != 0) return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::_exit(body());
    }
    ~Child() {
        if (pid_ != 0) (void)end(SIGKILL);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void signal(int number) const { ::kill(pid_, number); }
    int end(int number = 0) { // 0: by itself
        int status = 0;
        if (number != 0) signal(number);
        ::waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t pid_;
};

dtctl::Fd connected(unsigned long port) {
    dtctl::Fd fd(::socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in to = dtctl::resolve("127.0.0.1", static_cast<uint16_t>(port));
    (void)::connect(fd.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to);
    return fd;
}

dtctl::Fd connected(const std::string &path) {
    dtctl::Fd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un to{AF_UNIX, {}};
    path.copy(to.sun_path, sizeof to.sun_path - 1);
    (void)::connect(fd.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to);
    return fd;
}

// From now on the system refuses this process a call; of some the second argument tells which.
void refuse(unsigned call, unsigned error, std::optional<unsigned> second = std::nullopt) {
    constexpr auto load = [](size_t offset) {
        return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
    };
    const uint8_t any = second ? 0 : 2;
    sock_filter steps[] = {load(offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
                           load(offsetof(seccomp_data, args[1])),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, second.value_or(0), 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    steps[1].jt = any;
    const sock_fprog program{std::size(steps), steps};
    (void)::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    (void)::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

template <typename Done> void until(Done done) {
    while (!done()) std::this_thread::sleep_for(10ms);
}

// Eight devices, the last of them slow, the first two in a hall; sim000007 is always being asked.
struct ServiceTest : testing::Test {
    ServiceTest()
        : simulator(simulated(), loop), devices([this] {
              for (;;) {
                  loop.wait(simulator.next_pass());
                  simulator.pass();
              }
              return 0;
          }) {}

    static SimulatorOptions simulated() {
        SimulatorOptions options;
        options.devices = 8;
        options.port = 0;
        options.manners.assign(8, Manner::good);
        options.manners.back() = Manner::slow;
        return options;
    }

    std::string device(const std::string &name, uint32_t number, const char *more = "") const {
        return fmt::format("[[device]]\nname = \"{}\"\naddress = \"{}\"\nport = {}\n{}\n", name,
                           Simulator::address_of(number), simulator.port(), more);
    }
    std::string hall() const {
        return "[[group]]\nname = \"hall\"\n" + device("a", 0, "groups = [\"hall\"]") +
               device("b", 1, "groups = [\"hall\"]");
    }
    void write(const std::string &lists, const char *top = "listen = 0") const {
        std::ofstream(scratch / "fleet.toml")
            << top << "\ninterval = \"1s\"\n[web]\nbind = \"127.0.0.1:0\"\n" + lists;
    }

    int serve() const {
        const int to = ::open((scratch / "journal").c_str(), O_CREAT | O_APPEND | O_WRONLY, 0600);
        ::dup2(to, STDERR_FILENO);
        try {
            Service(scratch / "fleet.toml").run();
        } catch (const dtctl::Failure &failure) {
            ::dprintf(STDERR_FILENO, "%s\n", failure.what());
            return static_cast<int>(failure.code());
        }
        return 0;
    }
    void start() {
        service.reset();
        service.emplace([this] { return serve(); });
        until([this] { return request_if_running(scratch / "dtfleet.sock", {{"status", true}}); });
    }
    json ask(const json &what) const { return request(scratch / "dtfleet.sock", what); }
    std::string error(const json &what) const { return ask(what).value("error", ""); }
    std::string journal() const { return dtctl::read_whole_file(scratch / "journal"); }

    int64_t number(const std::string &sql) const { return number_of(scratch / "fleet.db", sql); }
    int64_t runs(const std::string &device) const {
        return number("SELECT count(*) FROM collection c JOIN device d ON d.id = c.device "
                      "WHERE d.name = '" +
                      device + "'");
    }
    // What the page of the last service answers.
    std::string get(const std::string &path) const {
        const std::string told = journal(), place = "the page is at http://127.0.0.1:";
        const size_t found = told.rfind(place);
        if (found == std::string::npos) return "";
        const dtctl::Fd socket = connected(std::stoul(told.substr(found + place.size())));
        const std::string head =
            "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
        (void)::send(socket.get(), head.data(), head.size(), MSG_NOSIGNAL);
        std::string answer;
        char bytes[4096];
        for (ssize_t count; (count = ::recv(socket.get(), bytes, sizeof bytes, 0)) > 0;)
            answer.append(bytes, static_cast<size_t>(count));
        return answer;
    }
    void wait_for_more(const std::string &device, int more = 2) const {
        until([&, before = runs(device)] { return runs(device) >= before + more; });
    }

    const Scratch scratch;
    Loop loop;
    Simulator simulator;
    Child devices;
    std::optional<Child> service;
};

TEST_F(ServiceTest, KilledItGoesOnWithWhatItKnew) {
    write(hall() + device("c", 2, "identity = 7"));
    start();
    for (const char *name : {"a", "b", "c"}) wait_for_more(name, 1);
    const json answer = ask({{"ask", "a"}});
    EXPECT_EQ(answer.value("outcome", ""), "whole");
    until([&, id = answer.value("run", "?")] {
        return number("SELECT count(*) FROM collection WHERE lower(hex(run)) = '" + id + "'") == 1;
    });
    EXPECT_EQ(ask({{"pause", "hall"}, {"until", wall_microseconds() + hour}}),
              json({{"paused", 2}}));
    EXPECT_EQ(service->end(SIGKILL), -SIGKILL);
    const int64_t before = runs("a") + runs("b");
    start(); // the socket of the other is still there
    wait_for_more("c", 3);
    EXPECT_EQ(runs("a") + runs("b"), before) << "they are still paused";
    EXPECT_EQ(ask({{"ask", "a"}, {"selftest", true}}).value("outcome", ""), "whole") << "by hand";
    EXPECT_EQ(ask({{"pause", "b"}, {"until", 0}}), json({{"paused", 1}}));
    wait_for_more("b");
    EXPECT_EQ(service->end(SIGTERM), 0);
    const std::string told = journal(), report = "c: has identity 0200, not 0007";
    ASSERT_THAT(told, HasSubstr(report));
    EXPECT_EQ(told.find(report), told.rfind(report)) << "it is told once, not at each start";
    write(hall() + device("c", 2, "identity = 8"));
    start();
    wait_for_more("c", 1);
    EXPECT_EQ(service->end(SIGTERM), 0);
    EXPECT_THAT(journal(), HasSubstr("c: has identity 0200, not 0008")) << "changed meanwhile";
}

TEST_F(ServiceTest, DoesWhatOperatorsAskOfIt) {
    write(hall() + device("c", 2, "identity = 7") + device("slow", 7));
    start();
    for (const char *name : {"a", "b", "c"}) wait_for_more(name, 1);
    EXPECT_THAT(error({{"ask", "nobody"}}), HasSubstr("nobody: there is no such device"));
    EXPECT_THAT(error({{"pause", "nobody"}, {"until", 0}}), HasSubstr("no device and no group"));
    EXPECT_NE(error({{"rename", "nobody"}, {"to", "d"}}), "");
    EXPECT_NE(error({{"rename", "a"}, {"to", "b"}}), "") << "that one is another device";
    EXPECT_NE(error({{"accept", "nobody"}}), "");
    EXPECT_NE(error({{"forget", "nobody"}}), "");
    EXPECT_THAT(error({{"forget", "b"}}), HasSubstr("is in the configuration"));
    EXPECT_THAT(error({{"unheard", "of"}}), HasSubstr("unknown request"));

    EXPECT_EQ(ask({{"accept", "c"}}), json({{"done", true}}));
    EXPECT_EQ(number("SELECT identity_expected FROM device WHERE name = 'c'"), 0x0200);
    EXPECT_EQ(ask({{"accept_clock", true}}), json({{"done", true}}));

    const int64_t id = number("SELECT id FROM device WHERE name = 'a'");
    EXPECT_EQ(ask({{"rename", "a"}, {"to", "pump"}}), json({{"done", true}}));
    wait_for_more("pump");
    write(device("pump", 0) + device("c", 2) + device("slow", 7)); // and b is gone
    EXPECT_EQ(ask({{"reload", true}}), json({{"reloaded", true}}));
    wait_for_more("pump");
    EXPECT_EQ(number("SELECT id FROM device WHERE name = 'pump'"), id);
    EXPECT_EQ(number("SELECT count(*) FROM device WHERE name = 'a'"), 0);
    EXPECT_EQ(ask({{"forget", "b"}}), json({{"done", true}}));
    EXPECT_EQ(number("SELECT count(*) FROM device WHERE name = 'b'"), 0);

    EXPECT_EQ(ask({{"discover", "10.0.0.255"}, {"seconds", 1}}), json({{"open", 0}}));
    // Without holding the network: nothing would begin any more while this asks and asks.
    until([&] { return ask({{"discover", "127.255.255.255"}, {"seconds", 0}})["open"] == 1; });
    EXPECT_NE(error({{"discover", "127.255.255.255"}, {"seconds", 61}}), "");
    wait_for_more("pump");
}

TEST_F(ServiceTest, KeepsItsInventoryUntilThereIsAGoodOne) {
    write(device("a", 0));
    start();
    wait_for_more("a", 1);
    write(device("a", 0) + device("b", 1, "identity = 70000"));
    const std::string mistake = "fleet.toml:14: identity";
    EXPECT_THAT(error({{"reload", true}}), HasSubstr(mistake));
    service->signal(SIGHUP);
    until([&] { return journal().find(mistake) != journal().rfind(mistake); });
    wait_for_more("a");
    write(device("b", 1));
    service->signal(SIGHUP);
    wait_for_more("b");
    const int64_t before = runs("a");
    wait_for_more("b");
    EXPECT_EQ(runs("a"), before);
}

TEST_F(ServiceTest, EndsInOrderAndIsAlone) {
    write(device("slow", 7));
    start();
    until([&] { return ask({{"status", true}})["open"] == 1; });
    EXPECT_EQ(Child([this] { return serve(); }).end(), 4);
    EXPECT_THAT(journal(), HasSubstr("another dtfleet is running"));
    EXPECT_EQ(service->end(SIGTERM), 0);
    EXPECT_THAT(rows_of(scratch / "fleet.db",
                        "SELECT o.text FROM collection c JOIN outcome o ON o.id = c.outcome"),
                ElementsAre("stopped"));
    const dtctl::Fd taken = dtctl::listen_on(0, 1);
    const uint16_t port = dtctl::local_port(taken);
    write(device("slow", 7), fmt::format("listen = {}", port).c_str());
    EXPECT_EQ(Child([this] { return serve(); }).end(), 4);
    EXPECT_THAT(journal(), HasSubstr(fmt::format("port {}", port)));
    EXPECT_FALSE(std::filesystem::exists(scratch / "dtfleet.sock"));
    write(device("slow", 7), "listen = 0\ncontrol = \"fleet.db\"");
    EXPECT_EQ(Child([this] { return serve(); }).end(), 4);
    EXPECT_THAT(journal(), HasSubstr("is no socket"));
    EXPECT_TRUE(std::filesystem::is_regular_file(scratch / "fleet.db"));
    for (const auto &[file, status] : {std::pair("none/fleet.db", 1), std::pair("fleet.toml", 5)}) {
        write(device("a", 0),
              fmt::format("listen = 0\ncontrol = \"s\"\ndatabase = \"{}\"", file).c_str());
        EXPECT_EQ(Child([this] { return serve(); }).end(), status) << "it never can be a database";
    }
    std::filesystem::remove(scratch / "fleet.toml");
    EXPECT_EQ(Child([this] { return serve(); }).end(), 1);
}

TEST_F(ServiceTest, ShowsAPageAndSaysWhere) {
    write(device("a", 0));
    start();
    wait_for_more("a", 1);
    until([&] { return get("/-/ready").starts_with("HTTP/1.1 200"); });
    EXPECT_THAT(get("/api/fleet"), HasSubstr("\"a\""));
    EXPECT_THAT(get("/metrics"), HasSubstr("dtfleet_"));
}

TEST_F(ServiceTest, AsksNobodyUntilTheDatabaseCanBeUsed) {
    write(hall());
    start();
    for (const char *name : {"a", "b"}) wait_for_more(name, 1);
    ask({{"pause", "b"}, {"until", wall_microseconds() + hour}});
    EXPECT_EQ(service->end(SIGTERM), 0);
    const int64_t before = runs("b");
    Child other([this] {
        const Lock lock(scratch / "fleet.db");
        std::ofstream(scratch / "locked").flush();
        return ::pause();
    });
    until([this] { return std::filesystem::exists(scratch / "locked"); });
    for (const bool ends : {true, false}) {
        start();
        until([&] { return get("/-/healthy").starts_with("HTTP/1.1 200"); });
        EXPECT_THAT(get("/-/ready"), StartsWith("HTTP/1.1 503"));
        EXPECT_THAT(get("/-/ready"), HasSubstr("fleet.db: database is locked"));
        EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
        EXPECT_THAT(get("/metrics"), HasSubstr("dtfleet_ready 0"));
        EXPECT_THAT(error({{"ask", "a"}}), HasSubstr("locked"));
        EXPECT_EQ(ask({{"reload", true}}), json({{"reloaded", true}}));
        if (ends) {
            EXPECT_EQ(service->end(SIGTERM), 0);
        }
    }
    other.end(SIGKILL);
    wait_for_more("a", 3);
    EXPECT_EQ(runs("b"), before) << "it is still paused";
    until([&] { return get("/-/ready").starts_with("HTTP/1.1 200"); });
}

// A process that lacks memory, as the system sees it: what it is refused is not done, and nothing
// ends for it.
TEST_F(ServiceTest, WhatTheSystemRefusesEndsNothing) {
    write(device("a", 0));
    const auto refused = [this] {
        Statistics statistics;
        const Limits limits;
        Reception reception(0, limits, loop, statistics, [](Connection &) {});
        Control control(scratch / "test.sock", loop, [](const json &, const Control::Reply &) {});
        std::string told;
        Reloader reloader(loop, [&](const Loaded &loaded) { told = text_of(loaded.complaints); });
        for (const unsigned call : {SYS_clone, SYS_clone3}) refuse(call, EAGAIN);
        refuse(SYS_epoll_ctl, ENOMEM, EPOLL_CTL_ADD);
        reloader.start([] { return Loaded(); });
        const dtctl::Fd device = connected(reception.port());
        const dtctl::Fd client = connected(scratch / "test.sock");
        char byte = 0;
        until([&] {
            loop.wait(now() + 10ms);
            control.pass(now());
            return statistics.no_descriptor != 0 &&
                   ::recv(client.get(), &byte, 1, MSG_DONTWAIT) == 0;
        });
        return told.starts_with("the configuration cannot be read now") && !reloader.is_reading()
                   ? 0
                   : 1;
    };
    EXPECT_EQ(Child(refused).end(), 0);
}

} // namespace
} // namespace dtfleet
