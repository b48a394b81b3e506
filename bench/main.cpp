// Measures libdt, the least work and the peers side by side, each as often as the others and in a
// mixed order, and prints their medians' ratios. Takes Google Benchmark's options.
#include "bench/bench.h"
#include "bench/report.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

using bench::Contender;

using Contenders = std::map<std::string, std::unique_ptr<Contender>>;

// All threads share one core: nothing else moves work or data about.
void stay_on_one_core() {
    cpu_set_t all, one;
    if (sched_getaffinity(0, sizeof all, &all) != 0) return;
    CPU_ZERO(&one);
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0 && CPU_COUNT(&one) == 0; --cpu)
        if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// What the library and the peers print goes nowhere; the report goes where it would have gone.
FILE *keep_standard_output() {
    FILE *report = fdopen(dup(STDOUT_FILENO), "w");
    if (!freopen("/dev/null", "w", stdout)) abort();
    return report;
}

bool chosen(const std::string &name, const char *part) {
    return !part || name.find(part) != std::string::npos;
}

// Makes the contenders for the chosen work; false when they do not do the same.
bool make(Contenders &contenders, const char *part) {
    std::map<std::string, std::string> kept;
    for (const bench::Entry &entry : bench::entries()) {
        if (!chosen(entry.work, part)) continue;
        std::unique_ptr<Contender> &made = contenders[entry.work + "/" + entry.who];
        made = entry.make();
        const std::string result = made->kept();
        if (kept.try_emplace(entry.work, result).first->second == result) continue;
        fprintf(stderr, "%s: %s does not do what the others do\n", entry.work.c_str(),
                entry.who.c_str());
        return false;
    }
    return true;
}

double seconds_of_a_call(Contender &contender) {
    using std::chrono::steady_clock;
    contender.prepare();
    const auto start = steady_clock::now();
    contender.repeat(1);
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// Calls at a time, so that counting them costs nothing.
uint64_t batch_of(Contender &contender) {
    contender.begin();
    const double seconds = seconds_of_a_call(contender);
    return seconds < 1e-6 ? 1000 : seconds < 1e-4 ? 10 : 1;
}

void time_calls(benchmark::State &state, Contender &contender, uint64_t batch) {
    contender.begin();
    if (contender.prepares()) {
        for (auto unused : state) state.SetIterationTime(seconds_of_a_call(contender));
        return;
    }
    while (state.KeepRunningBatch(static_cast<int64_t>(batch))) contender.repeat(batch);
}

void add_benchmark(const std::string &name, Contender &contender) {
    const uint64_t batch = batch_of(contender);
    auto *added = benchmark::RegisterBenchmark(
        name.c_str(), [&contender, batch](auto &state) { time_calls(state, contender, batch); });
    if (contender.prepares()) added->UseManualTime()->Iterations(2000);
    if (contender.has_threads()) added->MeasureProcessCPUTime();
}

std::vector<char *> with_defaults(int argc, char **argv) {
    static char repetitions[] = "--benchmark_repetitions=11", time[] = "--benchmark_min_time=0.02",
                mixed[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char *> all(argv, argv + argc);
    all.insert(all.begin() + 1, {repetitions, time, mixed});
    return all;
}

} // namespace

// An argument without dashes is a part of the names of the work to measure; --times prints plain
// lines.
int main(int argc, char **argv) {
    const char *part = argc > 1 && argv[argc - 1][0] != '-' ? argv[--argc] : nullptr;
    const bool plain = argc > 1 && strcmp(argv[1], "--times") == 0;
    std::vector<char *> args = with_defaults(argc, argv);
    int count = static_cast<int>(args.size());
    args.push_back(nullptr);
    unsetenv("TZ");
    stay_on_one_core();
    FILE *out = keep_standard_output();
    Contenders contenders;
    if (!make(contenders, part)) return 1;
    if (contenders.empty()) {
        fprintf(stderr, "no work has \"%s\" in its name\n", part);
        return 1;
    }
    std::map<std::string, size_t> operations;
    for (const auto &[name, contender] : contenders) {
        operations[name] = contender->operations();
        add_benchmark(name, *contender);
    }
    benchmark::Initialize(&count, args.data());
    bench::Report report(out, operations, plain);
    benchmark::RunSpecifiedBenchmarks(&report);
    fclose(out);
}
