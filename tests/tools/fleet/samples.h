// Runs and databases for tests of the store.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/store.h"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace dtfleet {

constexpr Microseconds second = 1'000'000;
constexpr Microseconds hour = 3600 * second;
constexpr Microseconds day = 24 * hour;

// Times of tests lie long ago.
inline const Retention endless{Seconds(0), Seconds(0), 0};

// A directory of its own, gone at the end.
class Scratch {
public:
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "fleet.XXXXXX";
        path_ = ::mkdtemp(name.data());
    }
    ~Scratch() { std::filesystem::remove_all(path_); }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    std::string operator/(const char *file) const { return path_ / file; }

private:
    std::filesystem::path path_;
};

// How many bytes a file of this process may have, until the end of the scope: as a full disk.
class FileLimit {
public:
    explicit FileLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileLimit(const FileLimit &) = delete;
    FileLimit &operator=(const FileLimit &) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};

// Another program that lets nobody near the database, until the end of the scope.
class Lock {
public:
    explicit Lock(const std::string &file) : database_(file, sqlite::Database::Access::make) {
        database_.execute("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; "
                          "CREATE TABLE IF NOT EXISTS locked(by)");
    }

private:
    sqlite::Database database_;
};

inline RunId id_of(uint64_t number) {
    RunId id{};
    std::memcpy(id.data(), &number, sizeof number);
    return id;
}

inline RunRecord make_run(uint64_t id, const std::string &device, Microseconds time) {
    RunRecord run;
    run.id = id_of(id);
    run.device = device;
    run.time = time;
    run.outcome = Outcome::whole;
    return run;
}

inline Sample &add(RunRecord &run, const std::string &collector, uint32_t key) {
    auto &names = run.samples.collectors;
    const auto found = std::find(names.begin(), names.end(), collector);
    Sample sample;
    sample.collector = static_cast<uint16_t>(found - names.begin());
    sample.key = key;
    if (found == names.end()) names.push_back(collector);
    return run.samples.list.emplace_back(sample);
}

inline Sample &add_number(RunRecord &run, const std::string &collector, uint32_t key,
                          uint64_t number) {
    Sample &sample = add(run, collector, key);
    sample.number = number;
    sample.kind = number >> 32 ? dt::decode::Kind::int64 : dt::decode::Kind::int32;
    return sample;
}

inline Sample &add_text(RunRecord &run, const std::string &collector, uint32_t key,
                        std::string_view text) {
    Sample &sample = add(run, collector, key);
    sample.kind = dt::decode::Kind::string;
    sample.number = run.samples.bytes.size();
    sample.size = static_cast<uint32_t>(text.size());
    run.samples.bytes += text;
    return sample;
}

inline void add_log(RunRecord &run, const std::string &collector, uint32_t key,
                    const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
        add_text(run, collector, key, "01/31 12:00:00");
        add_text(run, collector, key, text);
    }
}

inline void write(Store &store, const RunRecord &run) { store.write({&run, 1}); }

// What the work throws says; empty: it throws nothing.
inline std::string failure_of(const std::function<void()> &work) {
    try {
        work();
        return "";
    } catch (const std::exception &failure) {
        return failure.what();
    }
}

// What a query of a file answers, each row as one text: its columns with a bar between them.
inline std::vector<std::string> rows_in_file(const std::string &file, const std::string &sql) {
    sqlite::Database database(file, sqlite::Database::Access::read);
    sqlite::Statement &query = database.statement(sql.c_str());
    std::vector<std::string> rows;
    while (query.step()) {
        std::string &row = rows.emplace_back();
        for (int i = 0; i < query.columns(); ++i) {
            if (i != 0) row += '|';
            row += query.bytes(i);
        }
    }
    return rows;
}

} // namespace dtfleet
