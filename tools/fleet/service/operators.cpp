#include "fleet/service/operators.h"

#include "host/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>

#include <algorithm>

namespace dtfleet {
namespace {

using nlohmann::json;

json error(std::string text) { return {{"error", std::move(text)}}; }

// A text under that key; empty for anything else.
std::string text_of(const json &request, const char *key) {
    const auto found = request.find(key);
    return found != request.end() && found->is_string() ? found->get<std::string>() : "";
}

std::optional<int64_t> number_of(const json &request, const char *key, int64_t most) {
    const auto found = request.find(key);
    if (found == request.end() || !found->is_number_unsigned()) return std::nullopt;
    const auto number = found->get<uint64_t>();
    return number <= static_cast<uint64_t>(most) ? std::optional(static_cast<int64_t>(number))
                                                 : std::nullopt;
}

// For work whose only answer is that it has been done.
Writer::Done done(
    const Control::Reply &reply, std::function<void()> afterwards = [] {}) {
    return [reply, afterwards = std::move(afterwards)](const std::string &mistake) {
        if (mistake.empty()) afterwards();
        reply(mistake.empty() ? json{{"done", true}} : error(mistake));
    };
}

} // namespace

const Operators::Command Operators::commands[] = {
    {"ask", &Operators::ask},         {"pause", &Operators::pause},
    {"rename", &Operators::rename},   {"forget", &Operators::forget},
    {"accept", &Operators::accept},   {"accept_clock", &Operators::accept_clock},
    {"back_up", &Operators::back_up}, {"discover", &Operators::discover},
};

bool Operators::answer(const json &request, const Control::Reply &reply) {
    const auto *command =
        std::find_if(std::begin(commands), std::end(commands),
                     [&](const Command &known) { return request.contains(known.key); });
    if (command == std::end(commands)) return false;
    (this->*command->act)(request, reply);
    return true;
}

void Operators::ask(const json &request, const Control::Reply &reply) {
    const Kind kind = request.contains("selftest") ? Kind::selftest : Kind::collection;
    const auto ended = [reply](const RunRecord &run) {
        reply({{"run", id_text(run.id)},
               {"outcome", dtfleet::text_of(run.outcome)},
               {"reason", run.reason}});
    };
    const std::string device = text_of(request, "ask");
    const std::string reason = writer_.not_ready();
    if (!reason.empty()) return reply(error(reason));
    sharing_.ask(engine_, device, kind, ended, [device, reply](const std::string &why) {
        reply(error(fmt::format("{}: {}", dtctl::escape(device), why)));
    });
}

// The device of that name or, without one, those in the group.
std::vector<std::string> Operators::devices_of(const std::string &name) const {
    if (inventory_->find(name)) return {name};
    std::vector<std::string> names;
    for (const Device &device : inventory_->devices)
        if (std::find(device.groups.begin(), device.groups.end(), name) != device.groups.end())
            names.push_back(device.name);
    return names;
}

void Operators::pause(const json &request, const Control::Reply &reply) {
    const std::string name = text_of(request, "pause");
    const auto until = number_of(request, "until", INT64_MAX);
    const std::vector<std::string> names = devices_of(name);
    if (!until) return reply(error("pause takes a time"));
    if (names.empty())
        return reply(error(fmt::format(
            "there is no device and no group \"{}\" in the configuration", dtctl::escape(name))));
    writer_.post(
        [names, until = *until](Store &store) {
            for (const std::string &device : names) store.pause(device, until);
        },
        [this, names, until = *until, reply](const std::string &mistake) {
            if (!mistake.empty()) return reply(error(mistake));
            for (const std::string &device : names) engine_.pause(device, moment_of(until));
            reply({{"paused", names.size()}});
        });
}

void Operators::rename(const json &request, const Control::Reply &reply) {
    const std::string from = text_of(request, "rename"), to = text_of(request, "to");
    if (from.empty() || !is_name(to)) return reply(error("rename takes two names of devices"));
    if (witness_.is_holding()) return reply(error("another device is being renamed"));
    witness_.hold(from);
    writer_.post([from, to](Store &store) { store.rename(from, to); },
                 [this, from, to, reply](const std::string &mistake) {
                     witness_.release(mistake.empty() ? to : from);
                     if (!mistake.empty()) return reply(error(mistake));
                     engine_.rename(from, to);
                     witness_.identities().rename(from, to);
                     reply({{"done", true}});
                 });
}

// The next run of a device that is asked would bring it back.
void Operators::forget(const json &request, const Control::Reply &reply) {
    const std::string device = text_of(request, "forget");
    if (inventory_->find(device))
        return reply(error(fmt::format("{} is in the configuration: take it out and reload, or "
                                       "import, then it can be forgotten",
                                       device)));
    writer_.post([device](Store &store) { store.forget(device); }, done(reply));
}

void Operators::accept(const json &request, const Control::Reply &reply) {
    const std::string device = text_of(request, "accept");
    writer_.post([device](Store &store) { store.accept(device); },
                 done(reply, [this, device] { witness_.identities().accept(device); }));
}

void Operators::accept_clock(const json &, const Control::Reply &reply) {
    writer_.post([](Store &store) { store.accept_clock(); }, done(reply));
}

void Operators::back_up(const json &request, const Control::Reply &reply) {
    const std::string file = text_of(request, "back_up");
    if (!file.starts_with('/')) return reply(error("back_up takes the absolute name of a file"));
    copy_on(file, reply);
}

// Bit by bit, so that runs are stored in between.
void Operators::copy_on(const std::string &file, const Control::Reply &reply) {
    const auto has_more = std::make_shared<bool>(false);
    writer_.post([file, has_more](Store &store) { *has_more = store.back_up(file); },
                 [this, file, has_more, reply](const std::string &mistake) {
                     if (!mistake.empty()) return reply(error(mistake));
                     if (!*has_more) return reply({{"done", true}});
                     copy_on(file, reply);
                 });
}

// Somebody looks for devices on a network: until then it is theirs.
void Operators::discover(const json &request, const Control::Reply &reply) {
    in_addr broadcast{};
    const auto seconds = number_of(request, "seconds", 60);
    if (!seconds || ::inet_pton(AF_INET, text_of(request, "discover").c_str(), &broadcast) != 1)
        return reply(error("discover takes a broadcast address and up to 60 seconds"));
    reply({{"open", engine_.hold(broadcast.s_addr, now() + Seconds(*seconds))}});
}

} // namespace dtfleet
