#include "fleet/service/service.h"

#include "host/failure.h"
#include "host/json_text.h"
#include "host/program.h"

#include <fmt/format.h>

#include <sys/signalfd.h>

#include <csignal>
#include <filesystem>

namespace dtfleet {
namespace {

using nlohmann::json;

// Blocks the signals that end or reload the service: they are read from this descriptor.
dtctl::Fd signal_descriptor() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    (void)::sigprocmask(SIG_BLOCK, &set, nullptr);
    return dtctl::Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::string text_of(const std::vector<Complaint> &complaints) {
    std::string text;
    for (const Complaint &complaint : complaints) {
        text += text.empty() ? "" : "\n";
        text += complaint.line == 0
                    ? complaint.text
                    : fmt::format("{}:{}: {}", complaint.file, complaint.line, complaint.text);
    }
    return text;
}

} // namespace

Inventory checked_inventory(const std::string &path) {
    Loaded loaded = load_inventory(path);
    if (!loaded.complaints.empty())
        throw dtctl::Failure(dtctl::Exit::broken, text_of(loaded.complaints));
    return std::move(loaded.inventory);
}

std::string control_path(const Inventory &inventory, const std::string &file) {
    const std::filesystem::path own =
        inventory.control.empty() ? "dtfleet.sock" : inventory.control;
    return std::filesystem::path(file).parent_path() / own;
}

Service::Service(std::string file, Outlet &outlet)
    : file_(std::move(file)),
      inventory_(std::make_shared<const Inventory>(checked_inventory(file_))),
      signals_(signal_descriptor()), engine_(inventory_, loop_, outlet),
      control_(
          control_path(*inventory_, file_), loop_,
          [this](const json &request, const Control::Reply &reply) { answer(request, reply); }) {
    loop_.add(signals_.get(), [this] { take_signal(); });
}

void Service::run() {
    while (!stopping_) {
        const bool caught_up = loop_.wait(engine_.next_pass());
        engine_.pass(caught_up);
    }
    engine_.stop();
}

void Service::take_signal() {
    signalfd_siginfo signal{};
    if (::read(signals_.get(), &signal, sizeof signal) != sizeof signal) return;
    if (signal.ssi_signo != SIGHUP) {
        stopping_ = true;
        return;
    }
    const std::string mistakes = reload();
    if (!mistakes.empty()) dtctl::complain("dtfleet", mistakes);
}

// The last good inventory stays.
std::string Service::reload() {
    Loaded loaded = load_inventory(file_);
    if (!loaded.complaints.empty()) return text_of(loaded.complaints);
    inventory_ = std::make_shared<const Inventory>(std::move(loaded.inventory));
    engine_.take_inventory(inventory_);
    return "";
}

void Service::answer(const json &request, const Control::Reply &reply) {
    if (request.contains("ask")) return ask(request, reply);
    if (!request.contains("reload")) return reply({{"error", "an unknown request"}});
    const std::string mistakes = reload();
    reply(mistakes.empty() ? json{{"reloaded", true}} : json{{"error", mistakes}});
}

void Service::ask(const json &request, const Control::Reply &reply) {
    const Kind kind = request.contains("selftest") ? Kind::selftest : Kind::collection;
    const auto done = [reply](const RunRecord &run) {
        reply(
            {{"run", id_text(run.id)}, {"outcome", text_of(run.outcome)}, {"reason", run.reason}});
    };
    std::string reason;
    if (!request["ask"].is_string()) return reply({{"error", "ask takes a device's name"}});
    if (!engine_.ask(request["ask"].get<std::string>(), kind, done, reason))
        reply({{"error", reason}});
}

} // namespace dtfleet
