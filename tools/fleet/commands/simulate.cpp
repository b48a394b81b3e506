// dtfleet simulate: a fleet to try it with.
#include "fleet/commands/commands.h"
#include "fleet/commands/help.h"
#include "fleet/simulate/simulator.h"
#include "host/descriptors.h"
#include "host/failure.h"
#include "host/output.h"

#include <fmt/format.h>

#include <sys/signalfd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <numeric>

namespace dtfleet {
namespace {

struct BadKind {
    Manner manner;
    const char *option;
    const char *help;
};

constexpr BadKind kinds[] = {
    {Manner::dead, "--dead", "Percent of them that never answer"},
    {Manner::slow, "--slow", "... that wait a second before each message"},
    {Manner::trickle, "--trickle", "... that send a byte at a time"},
    {Manner::broken, "--broken", "... that break the format"},
    {Manner::stuck, "--stuck", "... that stop in the middle"},
    {Manner::clashing, "--clashing", "... that have one identity together"},
    {Manner::empty, "--empty", "... whose collectors put nothing"},
    {Manner::logging, "--logging", "... that send a log, too, which grows"},
};

struct Options {
    SimulatorOptions simulator;
    std::string inventory;
    double seconds = 60;
    std::array<unsigned, std::size(kinds)> percent{};
};

// A hundred devices with those shares, which are spread over them.
std::vector<Manner> manners_of(const Options &options) {
    constexpr size_t stride = 37; // meets each place once
    std::vector<Manner> manners(100, Manner::good);
    size_t next = 0;
    for (size_t kind = 0; kind < std::size(kinds); ++kind)
        for (unsigned i = 0; i < options.percent[kind] && next < manners.size(); ++i)
            manners[stride * next++ % manners.size()] = kinds[kind].manner;
    return manners;
}

// Takes the place of what the signals would do by themselves.
dtctl::Fd ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM}) sigaddset(&set, signal);
    (void)::sigprocmask(SIG_BLOCK, &set, nullptr);
    return dtctl::Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

void put_counts(const SimulatorCounts &counts) {
    dtctl::Output out(stdout);
    out.put(fmt::format("{} commands, {} runs served, {} cut off, {} doubles, {} overlaps\n",
                        counts.commands, counts.runs, counts.failed, counts.doubles,
                        counts.overlaps));
    out.flush();
}

void simulate(const Options &options) {
    if (std::accumulate(options.percent.begin(), options.percent.end(), 0u) > 100)
        throw dtctl::Failure(dtctl::Exit::usage, "the shares are more than 100 percent together");
    SimulatorOptions simulated = options.simulator;
    simulated.manners = manners_of(options);
    (void)dtctl::allow_descriptors();
    Loop loop;
    Simulator simulator(simulated, loop);
    if (!options.inventory.empty() &&
        !(std::ofstream(options.inventory) << simulator.inventory()).flush())
        throw dtctl::Failure(dtctl::Exit::failed,
                             fmt::format("cannot write {}", options.inventory));
    Time end = now() + std::chrono::ceil<Time>(std::chrono::duration<double>(options.seconds));
    const dtctl::Fd signals = ending_signals();
    const uint64_t entry = loop.add(signals.get(), [&end] { end = now(); });
    while (now() < end) {
        loop.wait(std::min(simulator.next_pass(), end));
        simulator.pass();
    }
    loop.remove(entry, signals.get());
    put_counts(simulator.counts());
}

constexpr const char *text =
    R"(The first device has the address 127.1.0.1, the next ones follow. After its time, and after
SIGINT or SIGTERM, it says how many runs there were.
)";

} // namespace

void add_simulate(dtctl::Command &program) {
    dtctl::Command command =
        program.command("simulate", "Be many devices, each with a loopback address of its own");
    Options &options = command.runs(simulate);
    SimulatorOptions &simulator = options.simulator;
    command.number("N", "", simulator.devices, 1, 1'000'000, "How many").required();
    command.number("--values", "N", simulator.values, 0, 100'000, "Values in each run")
        .shows_default();
    command.number("--port", "PORT", simulator.port, 1, 65'535, "UDP port of all of them")
        .shows_default();
    command.number("--seconds", "S", options.seconds, 0.1, 1e9, "How long").shows_default();
    command.file("--inventory", options.inventory, "Write a configuration of them");
    command.number("--rate", "N", simulator.rate, 1, 1'000'000,
                   "Runs that all of them begin in a second, at most");
    for (size_t kind = 0; kind < std::size(kinds); ++kind)
        command.number(kinds[kind].option, "P", options.percent[kind], 0, 100, kinds[kind].help);
    add_footer(command,
               "dtfleet simulate 100 --inventory fleet.toml --seconds 600\n"
               "dtfleet simulate 10000 --inventory fleet.toml --dead 10 --broken 1",
               text);
}

} // namespace dtfleet
