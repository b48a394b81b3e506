// Commands that the running service carries out: ask and reload.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/store/record.h"
#include "host/failure.h"
#include "host/output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

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

struct Options {
    std::string config;
    std::string device;
    bool selftest = false;
};

void ask(const Options &options) {
    nlohmann::json what{{"ask", options.device}};
    if (options.selftest) what["selftest"] = true;
    const nlohmann::json answer = ask_service(config_file(options.config), what);
    dtctl::Output out(stdout);
    out.put(answer.dump() + "\n");
    out.flush();
    for (const auto &[outcome, code] : endings)
        if (answer.at("outcome").get<std::string>() == text_of(outcome))
            throw Failure(code, fmt::format("{}: {}: {}", options.device, text_of(outcome),
                                            answer.at("reason").get<std::string>()));
}

void reload(const Options &options) {
    ask_service(config_file(options.config), {{"reload", true}});
}

} // namespace

void add_ask(dtctl::Command &program) {
    dtctl::Command command = program.command("ask", "Have the running service ask a device now");
    Options &options = command.runs(ask);
    command.argument("DEVICE", options.device, "Its name");
    command.flag("--selftest", options.selftest, "Have it test itself");
    add_config(command, options.config);
    add_footer(command, "dtfleet ask pump7\ndtfleet ask pump7 --selftest");
}

void add_reload(dtctl::Command &program) {
    dtctl::Command command =
        program.command("reload", "Have the running service read its configuration again");
    add_config(command, command.runs(reload).config);
    add_footer(
        command, "dtfleet reload",
        R"(The service takes the new devices, intervals and groups. When the configuration has a mistake
it keeps what it had, and the command says where the mistake is. What `dtfleet import` has taken
into a database on a server needs no reload.
)");
}

} // namespace dtfleet
