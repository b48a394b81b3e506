// dtfleet simulate: a fleet to try it with.
#include "fleet/commands/commands.h"
#include "fleet/commands/help.h"
#include "fleet/simulate/simulator.h"
#include "host/failure.h"
#include "host/options.h"
#include "host/output.h"

#include <fmt/format.h>

#include <fstream>
#include <memory>

namespace dtfleet {
namespace {

struct Options {
    SimulatorOptions simulator;
    std::string inventory;
    double seconds = 60;
    bool bad = false;
};

void simulate(Options options) {
    if (options.bad)
        options.simulator.manners = {
            Manner::good,    Manner::good,   Manner::good,     Manner::dead,  Manner::slow,
            Manner::trickle, Manner::broken, Manner::clashing, Manner::empty, Manner::logging};
    Loop loop;
    Simulator simulator(options.simulator, loop);
    if (!options.inventory.empty() &&
        !(std::ofstream(options.inventory) << simulator.inventory()).flush())
        throw dtctl::Failure(dtctl::Exit::failed,
                             fmt::format("cannot write {}", options.inventory));
    const Time end =
        now() + std::chrono::ceil<Time>(std::chrono::duration<double>(options.seconds));
    while (now() < end) {
        loop.wait(std::min(simulator.next_pass(), end));
        simulator.pass();
    }
    const SimulatorCounts &counts = simulator.counts();
    dtctl::Output out(stdout);
    out.put(fmt::format("{} commands, {} runs served, {} cut off, {} doubles, {} overlaps\n",
                        counts.commands, counts.runs, counts.failed, counts.doubles,
                        counts.overlaps));
    out.flush();
}

} // namespace

void add_simulate(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("simulate", "Be many devices, each with a loopback address of its own");
    auto options = std::make_shared<Options>();
    SimulatorOptions &simulator = options->simulator;
    command.add_option("N", simulator.devices, "How many")
        ->required()
        ->type_name("")
        ->check(CLI::Range(1, 1'000'000));
    dtctl::add_number(command, "--values", "N", simulator.values, 0, 100'000, "Values in each run");
    dtctl::add_number(command, "--port", "PORT", simulator.port, 1, 65'535,
                      "UDP port of all of them");
    dtctl::add_number(command, "--seconds", "S", options->seconds, 0.1, 1e9, "How long");
    command.add_option("--inventory", options->inventory, "Write an inventory of them")
        ->type_name("FILE");
    command.add_flag("--bad", options->bad, "Seven of ten are bad in one way each, or grow");
    add_footer(command, "dtfleet simulate 100 --inventory fleet.toml --seconds 600",
               R"(The first device has the address 127.1.0.1, the next ones follow.
)");
    command.callback([options] { simulate(*options); });
}

} // namespace dtfleet
