#include "fleet/commands/commands.h"

#include "fleet/commands/run_printer.h"
#include "fleet/service/service.h"
#include "fleet/simulate/simulator.h"
#include "host/failure.h"
#include "host/options.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <memory>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

void add_file(CLI::App &command, std::string &file) {
    command.add_option("FILE", file, "The inventory")->required()->type_name("");
}

void print(const std::string &line) {
    if (std::puts(line.c_str()) < 0 || std::fflush(stdout) != 0)
        throw Failure(Exit::failed, "cannot write the output");
}

// What the running service answers; its error is the command's.
nlohmann::json ask_service(const std::string &file, const nlohmann::json &what) {
    nlohmann::json answer = request(control_path(checked_inventory(file), file), what);
    if (answer.contains("error")) throw Failure(Exit::broken, answer["error"].get<std::string>());
    return answer;
}

void run(const std::string &file) {
    RunPrinter printer;
    Service(file, printer).run();
    if (printer.failed()) throw Failure(Exit::failed, "cannot write the output");
}

void check(const std::string &file) {
    const Inventory inventory = checked_inventory(file);
    print(fmt::format("{}: {} devices in {} groups", file, inventory.devices.size(),
                      inventory.groups.size()));
}

struct SimulateOptions {
    SimulatorOptions simulator;
    std::string inventory;
    double seconds = 60;
    bool bad = false;
};

void simulate(SimulateOptions options) {
    if (options.bad)
        options.simulator.manners = {
            Manner::good,    Manner::good,   Manner::good,     Manner::dead,  Manner::slow,
            Manner::trickle, Manner::broken, Manner::clashing, Manner::empty, Manner::logging};
    Loop loop;
    Simulator simulator(options.simulator, loop);
    if (!options.inventory.empty() &&
        !(std::ofstream(options.inventory) << simulator.inventory()).flush())
        throw Failure(Exit::failed, fmt::format("cannot write {}", options.inventory));
    const Time end =
        now() + std::chrono::ceil<Time>(std::chrono::duration<double>(options.seconds));
    while (now() < end) {
        loop.wait(std::min(simulator.next_pass(), end));
        simulator.pass();
    }
    const SimulatorCounts &counts = simulator.counts();
    print(fmt::format("{} commands, {} runs served, {} cut off, {} doubles, {} overlaps",
                      counts.commands, counts.runs, counts.failed, counts.doubles,
                      counts.overlaps));
}

} // namespace

void add_run(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("run", "Ask the devices in their turns; each run is a line of JSON");
    auto file = std::make_shared<std::string>();
    add_file(command, *file);
    command.callback([file] { run(*file); });
}

void add_check(CLI::App &app) {
    CLI::App &command = *app.add_subcommand("check", "Say what is wrong with an inventory");
    auto file = std::make_shared<std::string>();
    add_file(command, *file);
    command.callback([file] { check(*file); });
}

void add_ask(CLI::App &app) {
    CLI::App &command = *app.add_subcommand("ask", "Have the running service ask a device now");
    auto file = std::make_shared<std::string>();
    auto device = std::make_shared<std::string>();
    auto selftest = std::make_shared<bool>(false);
    add_file(command, *file);
    command.add_option("DEVICE", *device, "Its name")->required()->type_name("");
    command.add_flag("--selftest", *selftest, "Have it test itself");
    command.callback([file, device, selftest] {
        nlohmann::json what{{"ask", *device}};
        if (*selftest) what["selftest"] = true;
        print(ask_service(*file, what).dump());
    });
}

void add_reload(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("reload", "Have the running service read its inventory again");
    auto file = std::make_shared<std::string>();
    add_file(command, *file);
    command.callback([file] { ask_service(*file, {{"reload", true}}); });
}

void add_simulate(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("simulate", "Be many devices, each with a loopback address of its own");
    auto options = std::make_shared<SimulateOptions>();
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
    command.callback([options] { simulate(*options); });
}

} // namespace dtfleet
