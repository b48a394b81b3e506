// What the store of dtfleet costs beside bare inserts of the same values in transactions of the
// same size: all values are different and stored. The store also keeps each run, its indexes, what
// every device brought last, and the sums of the hours. Then the same with one value in ten
// changing and the changes stored.
//
// usage: fleet_store [MILLIONS OF VALUES [DEVICES]]
#include "fleet.h"
#include "fleet/store/sqlite/database.h"
#include "fleet_runs.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>

namespace {

using namespace dtfleet;
using namespace fleet;
using Clock = std::chrono::steady_clock;

double processor_seconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// One way to write runs, with what it has spent.
class Side {
public:
    explicit Side(std::function<void(const Runs &)> write) : write_(std::move(write)) {}

    void write(const Runs &runs) {
        timed([&] { write_(runs); });
    }
    // The database goes with it.
    void close() {
        timed([&] { write_ = {}; });
    }
    double seconds() const { return seconds_; }
    double processor() const { return processor_; }

private:
    template <typename Work> void timed(Work work) {
        const auto begin = Clock::now();
        const double processor = processor_seconds();
        work();
        processor_ += processor_seconds() - processor;
        seconds_ += std::chrono::duration<double>(Clock::now() - begin).count();
    }

    std::function<void(const Runs &)> write_;
    double seconds_ = 0;
    double processor_ = 0;
};

Side bare(const std::string &file) {
    auto database = std::make_shared<sqlite::Database>(file, sqlite::Database::Access::make);
    database->execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                      "PRAGMA wal_autocheckpoint = 4000; PRAGMA cache_size = -32768;"
                      "CREATE TABLE value(id INTEGER PRIMARY KEY, series INTEGER NOT NULL, "
                      "ordinal INTEGER NOT NULL, value)");
    return Side([database, id = int64_t{0}](const Runs &runs) mutable {
        sqlite::Transaction transaction(*database, sqlite::Transaction::Kind::write);
        sqlite::Statement &insert = database->statement("INSERT INTO value VALUES(?, ?, ?, ?)");
        for (const RunRecord &run : runs)
            for (const Sample &sample : run.samples.list)
                insert.run(++id, sample.key + 1, 0, sample.number);
        transaction.commit();
    });
}

Side stored(const std::string &file) {
    return Side(
        [store = std::shared_ptr(open_store(file, {}))](const Runs &runs) { store->write(runs); });
}

// By turns, so that all meet the same machine. The making of the runs does not count; what is
// written at the end does.
void write(const Load &load, const std::vector<Side *> &sides) {
    for (uint64_t done = 0; done < load.runs;) {
        const Runs some = make_runs(load, done);
        for (Side *side : sides) side->write(some);
    }
    for (Side *side : sides) side->close();
}

void show(const char *work, const Load &load, const Side &side, const std::string &file) {
    const auto runs = static_cast<double>(load.runs);
    const std::string name(work);
    fleet::show((name + ": values/s").c_str(), runs * values_a_run / side.seconds());
    fleet::show((name + ": microseconds of processor a run").c_str(),
                side.processor() * 1e6 / runs);
    fleet::show((name + ": bytes a value").c_str(),
                static_cast<double>(std::filesystem::file_size(file)) / (runs * values_a_run));
}

bool measure(Load load, const std::string &directory) {
    Side inserts = bare(directory + "/bare.db");
    Side all = stored(directory + "/all.db");
    load.keeps_all = true;
    write(load, {&inserts, &all});
    Side changes = stored(directory + "/changes.db");
    load.keeps_all = false;
    write(load, {&changes});
    show("bare inserts", load, inserts, directory + "/bare.db");
    show("store, all", load, all, directory + "/all.db");
    show("store, changes (one value in ten)", load, changes, directory + "/changes.db");
    return fleet::show("store, all: rate beside bare inserts", inserts.seconds() / all.seconds(),
                       fleet::Bound::at_least, 0.5);
}

} // namespace

int main(int argc, char **argv) {
    const double millions = argc > 1 ? std::atof(argv[1]) : 1;
    Load load;
    load.runs = static_cast<uint64_t>(millions * 1e6) / values_a_run;
    load.devices = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000;
    const char *parent = std::getenv("TMPDIR");
    std::string directory = std::string(parent ? parent : "/tmp") + "/fleet_store.XXXXXX";
    if (load.runs == 0 || load.devices == 0 || !::mkdtemp(directory.data())) {
        std::fprintf(stderr, "usage: fleet_store [MILLIONS OF VALUES [DEVICES]]\n");
        return 2;
    }
    const bool is_met = measure(load, directory);
    std::filesystem::remove_all(directory);
    return is_met ? 0 : 1;
}
