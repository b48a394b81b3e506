// Commands that the running service carries out: ask and reload.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/store/record.h"
#include "host/failure.h"
#include "host/output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <utility>

namespace dtfleet {

namespace {

using dtctl::Exit;
using dtctl::Failure;

// As dtctl's status for a collection that ends so.
constexpr std::pair<Outcome, Exit> endings[] = {
    {Outcome::unanswered, Exit::timeout}, {Outcome::silent, Exit::timeout},
    {Outcome::too_long, Exit::timeout},   {Outcome::refused, Exit::unreachable},
    {Outcome::reset, Exit::broken},       {Outcome::malformed, Exit::broken},
    {Outcome::too_large, Exit::broken},   {Outcome::stopped, Exit::unreachable},
};

void ask(const std::string &config, const std::string &device, bool selftest) {
    nlohmann::json what{{"ask", device}};
    if (selftest) what["selftest"] = true;
    const nlohmann::json answer = ask_service(config_file(config), what);
    dtctl::Output out(stdout);
    out.put(answer.dump() + "\n");
    out.flush();
    for (const auto &[outcome, code] : endings)
        if (answer.at("outcome") == text_of(outcome))
            throw Failure(code, fmt::format("{}: {}: {}", device, text_of(outcome),
                                            answer.at("reason").get<std::string>()));
}

} // namespace

void add_ask(CLI::App &app) {
    CLI::App &command = *app.add_subcommand("ask", "Have the running service ask a device now");
    struct Options {
        std::string file, device;
        bool selftest = false;
    };
    auto options = std::make_shared<Options>();
    command.add_option("DEVICE", options->device, "Its name")->required()->type_name("");
    command.add_flag("--selftest", options->selftest, "Have it test itself");
    add_config(command, options->file);
    add_footer(command, "dtfleet ask pump7\ndtfleet ask pump7 --selftest");
    command.callback([options] { ask(options->file, options->device, options->selftest); });
}

void add_reload(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("reload", "Have the running service read its configuration again");
    auto file = std::make_shared<std::string>();
    add_config(command, *file);
    add_footer(
        command, "dtfleet reload",
        R"(The service takes the new devices, intervals and groups. When the configuration has a mistake
it keeps what it had, and the command says where the mistake is.
)");
    command.callback([file] { ask_service(config_file(*file), {{"reload", true}}); });
}

} // namespace dtfleet
