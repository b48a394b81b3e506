// Commands that the running service carries out: ask and reload.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "host/output.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace dtfleet {

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
    command.callback([options] {
        nlohmann::json what{{"ask", options->device}};
        if (options->selftest) what["selftest"] = true;
        dtctl::Output out(stdout);
        out.put(ask_service(config_file(options->file), what).dump() + "\n");
        out.flush();
    });
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
