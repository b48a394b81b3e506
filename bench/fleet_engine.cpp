// What the fleet's engine costs beside the least that could be done and beside dtctl, and how it
// bears a large, a half dead and an overloaded fleet. The devices are simulated by a process of
// their own; what is measured is the processor time of this one.
//
// usage: fleet_engine [PART OF A NAME]
#include "fleet.h"
#include "fleet/engine/engine.h"
#include "fleet/simulate/simulator.h"
#include "fleet/store/writer.h"
#include "host/descriptors.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

namespace {

using namespace dtfleet;
using namespace std::chrono_literals;
using fleet::Bound;

double seconds_of(Time time) { return std::chrono::duration<double>(time).count(); }

double seconds_of(const timeval &time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

double processor_seconds(int who = RUSAGE_SELF) {
    rusage usage{};
    ::getrusage(who, &usage);
    return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

// ---- the devices --------------------------------------------------------------------------------

class Devices {
public:
    explicit Devices(const SimulatorOptions &options) : options_(options) {
        void *memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        shared_ = new (memory) Shared;
        options_.port = 0;
        child_ = ::fork();
        if (child_ == 0) simulate();
        while (shared_->port == 0) ::usleep(1000);
    }
    ~Devices() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::munmap(shared_, sizeof(Shared));
    }
    Devices(const Devices &) = delete;
    Devices &operator=(const Devices &) = delete;

    uint16_t port() const { return shared_->port; }
    uint64_t doubles() const { return shared_->doubles; }

    std::shared_ptr<Inventory> inventory(Seconds interval) const {
        auto made = std::make_shared<Inventory>();
        made->listen = 0;
        for (uint32_t i = 0; i < options_.devices; ++i) {
            Device &device = made->devices.emplace_back();
            device.name = fmt::format("sim{:06}", i);
            device.address = Simulator::address_of(i);
            ::inet_pton(AF_INET, device.address.c_str(), &device.ip);
            device.port = port();
            device.interval = interval;
        }
        return made;
    }

private:
    struct Shared {
        std::atomic<uint16_t> port = 0;
        std::atomic<uint64_t> doubles = 0;
    };

    [[noreturn]] void simulate() {
        Loop loop;
        Simulator simulator(options_, loop);
        shared_->port = simulator.port();
        for (;;) {
            loop.wait(simulator.next_pass());
            simulator.pass();
            shared_->doubles = simulator.counts().doubles;
        }
    }

    SimulatorOptions options_;
    Shared *shared_;
    pid_t child_;
};

SimulatorOptions devices(uint32_t count, std::vector<Manner> manners = {}) {
    SimulatorOptions options;
    options.devices = count;
    options.manners = std::move(manners);
    return options;
}

// ---- the engine ---------------------------------------------------------------------------------

class Counter : public Outlet {
public:
    bool has_room() const override { return true; }
    void put(RunRecord run) override {
        whole += is_whole(run.outcome);
        ++all;
    }
    uint64_t whole = 0;
    uint64_t all = 0;
};

struct Cost {
    double seconds = 0;
    double processor = 0;
    double runs = 0;
    double a_run() const { return processor / runs; }
};

class Service {
public:
    Service(const std::shared_ptr<const Inventory> &inventory, Outlet &outlet)
        : engine(inventory, loop, outlet) {}

    template <typename Done> void run_until(Done done) {
        while (!done()) {
            const bool caught_up = loop.wait(std::min(engine.next_pass(), now() + Time(100ms)));
            engine.pass(caught_up);
        }
    }
    uint64_t whole() const { return engine.statistics().runs[static_cast<size_t>(Outcome::whole)]; }
    Cost run_for(Time time) {
        const double processor = processor_seconds();
        const uint64_t runs = whole();
        const Time begin = now();
        run_until([&] { return now() >= begin + time; });
        return {seconds_of(now() - begin), processor_seconds() - processor,
                static_cast<double>(whole() - runs)};
    }

    Loop loop;
    Engine engine;
};

class Directory {
public:
    Directory() {
        const char *parent = std::getenv("TMPDIR");
        path_ = std::string(parent ? parent : "/tmp") + "/fleet_engine.XXXXXX";
        if (!::mkdtemp(path_.data())) std::abort();
    }
    ~Directory() { std::filesystem::remove_all(path_); }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    std::string file(const char *name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

Cost stored_cost(const std::shared_ptr<Inventory> &inventory, Time time) {
    const Directory directory;
    const double processor = processor_seconds();
    Cost cost;
    {
        Writer writer(open_store(directory.file("fleet.db"), {}));
        writer.take_inventory(inventory);
        cost = Service(inventory, writer).run_for(time);
    }
    cost.processor = processor_seconds() - processor; // with what was stored at the end
    return cost;
}

// ---- the least that could be done ---------------------------------------------------------------

// Asks each device in its turn, reads what it sends and acknowledges each message.
class Bare {
public:
    Bare(uint16_t port, uint32_t devices, Time interval)
        : port_(port), devices_(devices), step_(interval / devices),
          commands_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
          listener_(dtctl::listen_on(0, 4096)), poll_(::epoll_create1(EPOLL_CLOEXEC)) {
        watch(listener_.get());
    }

    Cost run_for(Time time) {
        const double processor = processor_seconds();
        const Time begin = now();
        Time next = begin;
        while (now() < begin + time) {
            for (; next <= now(); next += step_) ask();
            wait(next);
        }
        return {seconds_of(now() - begin), processor_seconds() - processor,
                static_cast<double>(runs_)};
    }

private:
    struct Connection {
        uint32_t left = 0; // of the message
        uint32_t head = 0; // bytes of its length
    };

    void watch(int fd) const {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        ::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, fd, &event);
    }

    void ask() {
        const uint32_t words[] = {16, 0, ++token_, dtctl::local_port(listener_)};
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(0x7F010001 + next_++ % devices_);
        to.sin_port = htons(port_);
        (void)::sendto(commands_.get(), words, sizeof words, 0,
                       reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }

    void wait(Time until) {
        epoll_event events[256];
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now()).count();
        const int count =
            ::epoll_wait(poll_.get(), events, 256, static_cast<int>(std::max<int64_t>(left, 0)));
        for (int i = 0; i < count; ++i)
            if (events[i].data.fd == listener_.get())
                accept();
            else
                receive(events[i].data.fd);
    }

    void accept() {
        for (int fd; (fd = ::accept4(listener_.get(), nullptr, nullptr,
                                     SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
            if (connections_.size() <= static_cast<size_t>(fd))
                connections_.resize(static_cast<size_t>(fd) + 1);
            connections_[static_cast<size_t>(fd)] = {};
            watch(fd);
        }
    }

    void receive(int fd) {
        uint8_t bytes[16'384];
        const ssize_t count = ::recv(fd, bytes, sizeof bytes, 0);
        if (count < 0 && errno == EAGAIN) return;
        if (count <= 0) {
            ++runs_;
            ::close(fd);
            return;
        }
        const size_t whole =
            take(connections_[static_cast<size_t>(fd)], bytes, static_cast<size_t>(count));
        static const char marks[64] = {6};
        (void)::send(fd, marks, std::min(whole, sizeof marks), MSG_NOSIGNAL);
    }

    // How many messages end in these bytes.
    static size_t take(Connection &connection, const uint8_t *bytes, size_t size) {
        size_t whole = 0;
        for (size_t at = 0; at < size;) {
            if (connection.head < 4) {
                connection.left |= uint32_t{bytes[at++]} << (8 * connection.head);
                if (++connection.head == 4) connection.left -= 4;
                continue;
            }
            const size_t some = std::min<size_t>(connection.left, size - at);
            at += some;
            connection.left -= static_cast<uint32_t>(some);
            if (connection.left == 0) {
                ++whole;
                connection = {};
            }
        }
        return whole;
    }

    uint16_t port_;
    uint32_t devices_, next_ = 0, token_ = 1 << 24;
    Time step_;
    dtctl::Fd commands_, listener_, poll_;
    std::vector<Connection> connections_; // by descriptor
    uint64_t runs_ = 0;
};

// ---- what is measured ---------------------------------------------------------------------------

double cost_of_dtctl(uint16_t port) {
    constexpr int times = 100;
    const std::string to = std::to_string(port);
    const double before = processor_seconds() + processor_seconds(RUSAGE_CHILDREN);
    for (uint32_t i = 0; i < times; ++i) {
        const std::string address = Simulator::address_of(i);
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::execl(DTCTL, "dtctl", "collect", "--device", address.c_str(), "--device-port",
                    to.c_str(), static_cast<char *>(nullptr));
            ::_exit(127);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        if (status != 0) std::abort();
    }
    return (processor_seconds() + processor_seconds(RUSAGE_CHILDREN) - before) / times;
}

bool cost_of_a_run() {
    constexpr uint32_t count = 1000;
    const double dtctl = [] { return cost_of_dtctl(Devices(devices(100)).port()); }();
    const Devices fleet(devices(count));
    const auto inventory = fleet.inventory(Seconds(1));
    Counter counter;
    Bare bare(fleet.port(), count, 1s);
    Cost least, engine;
    for (int turn = 0; turn < 3; ++turn) { // so that both meet the same machine
        const Cost bare_turn = bare.run_for(2s);
        least.processor += bare_turn.processor;
        least.runs = bare_turn.runs; // since its start
        Service service(inventory, counter);
        service.run_for(500ms);
        const Cost engine_turn = service.run_for(2s);
        engine.processor += engine_turn.processor;
        engine.runs += engine_turn.runs;
    }
    const Cost stored = stored_cost(inventory, 5s);
    fleet::show("bare epoll loop: microseconds of processor a run", least.a_run() * 1e6);
    fleet::show("engine: microseconds of processor a run", engine.a_run() * 1e6);
    fleet::show("engine and store: microseconds of processor a run", stored.a_run() * 1e6);
    fleet::show("dtctl, spawned: microseconds of processor a run", dtctl * 1e6);
    bool met = fleet::show("engine: processor beside a bare epoll loop",
                           engine.a_run() / least.a_run(), Bound::at_most, 1.5);
    met &= fleet::show("engine: times less processor than dtctl", dtctl / engine.a_run(),
                       Bound::at_least, 25);
    met &= fleet::show("engine and store: times less processor than dtctl", dtctl / stored.a_run(),
                       Bound::at_least, 10);
    return met;
}

bool share_of_a_core() {
    bool met = true;
    for (const auto &[count, most] : {std::pair(10'000u, 0.1), std::pair(100'000u, 1.0)}) {
        const Devices fleet(devices(count));
        const Cost cost = stored_cost(fleet.inventory(Seconds(60)), 15s);
        fleet::show(fmt::format("{} devices a minute, stored: runs/s", count).c_str(),
                    cost.runs / cost.seconds);
        met &= fleet::show(fmt::format("{} devices a minute, stored: cores", count).c_str(),
                           cost.a_run() * count / 60, Bound::at_most, most);
    }
    return met;
}

size_t resident_bytes() {
    size_t pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

bool memory_of_open_runs() {
    constexpr uint32_t count = 10'000;
    const Devices fleet(devices(count, {Manner::stuck}));
    const auto inventory = fleet.inventory(Seconds(10));
    inventory->limits.waiting = inventory->limits.open = inventory->limits.per_subnet = count;
    inventory->limits.silence = inventory->limits.run = Seconds(600);
    Counter counter;
    Service service(inventory, counter);
    const size_t before = resident_bytes();
    Snapshot snapshot;
    const Time end = now() + Time(60s);
    service.run_until([&] {
        service.engine.describe(snapshot);
        return snapshot.connected == count || now() > end;
    });
    service.run_for(1s); // until the last of them has sent its half
    const double growth = static_cast<double>(resident_bytes() - before);
    fleet::show("open runs, half received", static_cast<double>(snapshot.connected));
    return fleet::show("open runs, half received: resident bytes each",
                       growth / static_cast<double>(snapshot.connected), Bound::at_most, 4000);
}

// How late the good devices were asked; known from outside by when a run's first command was sent.
class Lateness : public Outlet {
public:
    Lateness(Time interval) : interval_(interval) {}
    bool has_room() const override { return true; }
    void put(RunRecord run) override {
        if (!is_whole(run.outcome)) return;
        const Time sent = std::chrono::microseconds(run.time) + offset_ -
                          std::chrono::microseconds(run.to_connect + run.to_opening);
        late_.push_back((sent - phase_of(run.device, interval_)) % interval_);
    }
    double at(double share) {
        const auto place =
            late_.begin() + static_cast<ptrdiff_t>(share * static_cast<double>(late_.size() - 1));
        std::nth_element(late_.begin(), place, late_.end());
        return seconds_of(*place);
    }
    size_t count() const { return late_.size(); }

private:
    Time interval_;
    Time offset_ = now() - std::chrono::microseconds(wall_microseconds());
    std::vector<Time> late_;
};

bool a_tenth_dead() {
    constexpr uint32_t count = 10'000;
    constexpr Seconds interval(60);
    std::vector<Manner> manners(10, Manner::good);
    manners[3] = Manner::dead;
    const Devices fleet(devices(count, manners));
    Lateness lateness(interval);
    Service(fleet.inventory(interval), lateness).run_for(interval);
    bool met =
        fleet::show("a tenth dead: runs of the others in a minute",
                    static_cast<double>(lateness.count()), Bound::at_least, 0.9 * count * 0.98);
    met &= fleet::show("a tenth dead: lateness of the others, 99th percentile, % of the interval",
                       lateness.at(0.99) / seconds_of(interval) * 100, Bound::at_most, 2);
    return met;
}

bool overload() {
    constexpr uint32_t capacity = 300; // runs a second
    const auto measured = [](uint32_t count) {
        SimulatorOptions options = devices(count);
        options.rate = capacity;
        const Devices fleet(options);
        Counter counter;
        Service service(fleet.inventory(Seconds(1)), counter);
        service.run_for(5s);
        const uint64_t doubles = fleet.doubles();
        const Cost cost = service.run_for(15s);
        return std::pair(cost.runs / cost.seconds,
                         static_cast<double>(fleet.doubles() - doubles) / cost.runs);
    };
    const auto [best, none] = measured(capacity);
    const auto [rate, doubles] = measured(5 * capacity);
    fleet::show("as many devices as can be served: runs/s", best);
    fleet::show("five times as many: runs/s", rate);
    bool met =
        fleet::show("five times as many: rate beside the best", rate / best, Bound::at_least, 0.8);
    met &=
        fleet::show("five times as many: double runs, % of all", doubles * 100, Bound::at_most, 1);
    return met;
}

// Memory first: what others have given back would be used again, and not be seen to grow.
constexpr struct {
    const char *name;
    bool (*measure)();
} parts[] = {{"memory", memory_of_open_runs},
             {"cost", cost_of_a_run},
             {"cores", share_of_a_core},
             {"dead", a_tenth_dead},
             {"overload", overload}};

} // namespace

int main(int argc, char **argv) {
    const std::string wanted = argc > 1 ? argv[1] : "";
    const bool is_name = wanted.find_first_not_of("0123456789.") != std::string::npos;
    (void)dtctl::allow_descriptors();
    bool met = true;
    for (const auto &part : parts)
        if (!is_name || std::string(part.name).find(wanted) != std::string::npos)
            met &= part.measure();
    return met ? 0 : 1;
}
