// What the shared store of dtfleet costs beside bare COPY of the same arrays in transactions of the
// same size, on a server of its own; how fast collectors claim devices, one, two and four of them;
// and how long a day of one series takes to read.
//
// usage: fleet_postgres [MILLIONS OF VALUES [DEVICES]]
#include "fleet.h"
#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/copy.h"
#include "fleet/store/postgres/open.h"
#include "fleet_runs.h"
#include "tests/tools/fleet/postgres/server.h"

#include <endian.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

namespace {

using namespace dtfleet;
using Clock = std::chrono::steady_clock;
using Runs = std::vector<RunRecord>;

constexpr uint32_t values_a_run = 100;
constexpr uint64_t runs_a_transaction = 1000;
constexpr uint64_t runs_at_once = 8000; // as the service gives them when many wait
constexpr Microseconds begin_time = 1'800'057'600'000'000; // a day's

uint64_t scatter(uint64_t number) { return number * 0x9e3779b97f4a7c15U; }

RunRecord make_run(uint64_t number, uint64_t devices) {
    RunRecord run;
    const uint64_t id = htobe64(number); // they grow, as the engine's do
    std::memcpy(run.id.data(), &id, sizeof id);
    run.device = "device " + std::to_string(number % devices);
    run.time =
        begin_time + static_cast<Microseconds>(number / devices * 60'000'000 + number % devices);
    run.keeps_all = true;
    run.outcome = Outcome::whole;
    run.samples.collectors = {"collector"};
    for (uint32_t key = 0; key < values_a_run; ++key) {
        Sample &sample = run.samples.list.emplace_back();
        sample.key = key;
        sample.number = scatter(number * values_a_run + key) >> 32;
    }
    return run;
}

double seconds(auto work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double own_processor_time() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// As many columns as the store's rows have, and no index.
class Bare {
public:
    explicit Bare(const std::string &address) : connection_(address) {
        connection_.execute("CREATE TABLE bare(time bigint, run uuid, device integer, outcome "
                            "smallint, series integer[], numbers bigint[])");
    }
    void write(const Runs &runs) {
        using namespace postgres;
        Rows rows(6);
        for (const RunRecord &run : runs) {
            const auto &list = run.samples.list;
            rows.row().int8(run.time).uuid(run.id).int4(1).int2(0);
            rows.array(Type::int4, list.size(), false,
                       [&](size_t i) { rows.int4(list[i].key + 1); });
            rows.array(Type::int8, list.size(), false,
                       [&](size_t i) { rows.int8(static_cast<int64_t>(list[i].number)); });
        }
        connection_.begin_copy("COPY bare FROM STDIN (FORMAT binary)");
        connection_.put(rows.data());
        connection_.end_copy();
    }

private:
    postgres::Connection connection_;
};

// What work costs: the time that it takes, and the processor's time of this side and the server's.
struct Cost {
    double time = 0, own = 0, servers = 0;
    void add(const PostgresServer &server, auto work) {
        const double own_before = own_processor_time(), server_before = server.processor_time();
        time += seconds(work);
        own += own_processor_time() - own_before;
        servers += server.processor_time() - server_before;
    }
    void show(const char *what, double runs) const {
        std::printf("%-8s us a run: %7.1f; of the processor: %7.1f here, %7.1f in the server\n",
                    what, time / runs * 1e6, own / runs * 1e6, servers / runs * 1e6);
    }
};

// By turns, so that both meet the same machine.
bool measure_writes(const PostgresServer &server, const std::string &address, uint64_t runs,
                    uint64_t devices) {
    Bare bare(address);
    const auto store = postgres::open_store(address, {Seconds(0), Seconds(0), 0});
    Cost copied, stored;
    for (uint64_t done = 0; done < runs;) {
        Runs some;
        for (uint64_t i = 0; i < runs_at_once && done < runs; ++i)
            some.push_back(make_run(done++, devices));
        for (size_t i = 0; i < some.size(); i += runs_a_transaction) {
            const Runs part(some.begin() + i,
                            some.begin() + std::min(some.size(), i + runs_a_transaction));
            copied.add(server, [&] { bare.write(part); });
        }
        stored.add(server, [&] { store->write(some); });
    }
    copied.show("bare", static_cast<double>(runs));
    stored.show("store", static_cast<double>(runs));
    const auto values = static_cast<double>(runs * values_a_run);
    fleet::show("bare COPY: values/s", values / copied.time);
    fleet::show("store, all: values/s", values / stored.time);
    return fleet::show("store, all: rate beside bare COPY", copied.time / stored.time,
                       fleet::Bound::at_least, 0.5);
}

bool measure_reading(const std::string &name, const std::string &address) {
    const auto reader = postgres::open_reader(address);
    const auto device = reader->device("device 0");
    const int64_t series = reader->series().at(42).id;
    const Microseconds end = device->last_ok + 1;
    double best = 1;
    size_t points = 0;
    for (int i = 0; i < 20; ++i)
        best = std::min(
            best, seconds([&] {
                points =
                    reader->points(device->id, series, 0, end - 86'400'000'000, end, 1500).size();
            }));
    fleet::show((name + ": columns read").c_str(), static_cast<double>(points));
    return fleet::show((name + ": a day of one series, warm: ms").c_str(), best * 1000,
                       fleet::Bound::at_most, 50);
}

// Of runs that store one value in ten.
bool measure_changes(const std::string &address, uint64_t runs, uint64_t devices) {
    const auto store = postgres::open_store(address, {Seconds(0), Seconds(0), 0});
    const fleet::Load load{runs, devices, false};
    for (uint64_t done = 0; done < runs;) store->write(fleet::make_runs(load, done));
    return measure_reading("read, changes", address);
}

// Claims a second of so many collectors, until no device is left.
double claim_rate(const PostgresServer &server, const std::string &address, size_t devices,
                  int collectors) {
    std::vector<std::unique_ptr<Leases>> leases;
    for (int i = 0; i < collectors; ++i)
        leases.push_back(postgres::open_leases(address, "collector", ""));
    std::atomic<size_t> claimed = 0;
    Cost cost;
    cost.add(server, [&] {
        std::vector<std::thread> threads;
        for (auto &one : leases)
            threads.emplace_back([&] {
                while (const size_t some =
                           one->claim(100, Leases::Duration(0), std::chrono::hours(1), 1).size())
                    claimed += some;
            });
        for (std::thread &thread : threads) thread.join();
    });
    PostgresServer::rows_of(address, "UPDATE device SET lease_until = 0, free_at = 0");
    PostgresServer::rows_of(address, "VACUUM ANALYZE device");
    fleet::show("claims: collectors", collectors);
    fleet::show("claims: the server's share of the processor", cost.servers / cost.time);
    if (claimed == devices) return static_cast<double>(devices) / cost.time;
    std::printf("%zu claimed of %zu\n", claimed.load(), devices);
    return 0;
}

bool measure_claims(const PostgresServer &server, const std::string &address, size_t devices) {
    Inventory inventory;
    for (size_t i = 0; i < devices; ++i)
        inventory.devices.emplace_back().name = "claimed " + std::to_string(i);
    postgres::open_store(address, {})->take_inventory(inventory);
    PostgresServer::rows_of(address, "VACUUM ANALYZE device");
    const double one = claim_rate(server, address, devices, 1);
    const double two = claim_rate(server, address, devices, 2);
    const double four = claim_rate(server, address, devices, 4);
    fleet::show("claimed devices/s, one collector", one);
    bool is_met =
        fleet::show("claimed devices/s, two beside one", two / one, fleet::Bound::at_least, 0.9);
    is_met &=
        fleet::show("claimed devices/s, four beside one", four / one, fleet::Bound::at_least, 0.9);
    return fleet::show("claimed devices a minute, four collectors", four * 60,
                       fleet::Bound::at_least, 100'000) &&
           is_met;
}

} // namespace

int main(int argc, char **argv) {
    const double millions = argc > 1 ? std::atof(argv[1]) : 1;
    const uint64_t devices = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 100;
    if (millions <= 0 || devices == 0 || !PostgresServer::is_installed()) {
        std::fprintf(stderr, "usage: fleet_postgres [MILLIONS OF VALUES [DEVICES]]\n");
        return 2;
    }
    const auto runs = static_cast<uint64_t>(millions * 1e6) / values_a_run;
    PostgresServer server;
    const std::string address = server.make_database(), changes = server.make_database();
    for (const std::string &one : {address, changes}) postgres::migrate_database(one);
    bool is_met = measure_writes(server, address, runs, devices);
    is_met &= measure_reading("read, all", address);
    is_met &= measure_changes(changes, runs, devices);
    is_met &= measure_claims(server, address, 100'000);
    return is_met ? 0 : 1;
}
