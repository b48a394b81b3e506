#include "host/command.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <optional>
#include <utility>

namespace dtctl {
namespace {

// CLI::Range lets "nan" pass, and says 0.100000.
CLI::Validator within(double low, double high) {
    const auto check = [low, high](const std::string &text) -> std::string {
        double number = 0;
        if (!CLI::detail::lexical_cast(text, number) || number != number)
            return fmt::format("'{}' is not a number", text);
        if (number >= low && number <= high) return "";
        return fmt::format("{} is not within {} to {}", text, low, high);
    };
    return {check, fmt::format("{} to {}", low, high)};
}

} // namespace

Option &Option::required() {
    option_->required();
    return *this;
}

Option &Option::shows_default() {
    option_->capture_default_str();
    return *this;
}

Option &Option::excludes(const Option &other) {
    option_->excludes(other.option_);
    return *this;
}

Option &Option::needs(const Option &other) {
    option_->needs(other.option_);
    return *this;
}

Command Command::command(const char *name, const char *help) {
    return Command(*app_->add_subcommand(name, help));
}

Option Command::argument(const char *name, std::string &value, const char *help) {
    return option(name, "", value, help).required();
}

template <typename Value>
Option Command::option(const char *name, const char *type, Value &value, const char *help) {
    return Option(*app_->add_option(name, value, help)->type_name(type)->allow_extra_args(false));
}

template Option Command::option(const char *, const char *, std::string &, const char *);
template Option Command::option(const char *, const char *, std::optional<std::string> &,
                                const char *);
template Option Command::option(const char *, const char *, std::vector<std::string> &,
                                const char *);

template <typename Number> Option Command::number(const char *name, const char *type,
                                                  Number &number, double low, double high,
                                                  const char *help) {
    CLI::Option &option = *app_->add_option(name, number, help)->type_name(type);
    return Option(*option.check(within(low, high)));
}

template Option Command::number(const char *, const char *, int &, double, double, const char *);
template Option Command::number(const char *, const char *, uint16_t &, double, double,
                                const char *);
template Option Command::number(const char *, const char *, uint32_t &, double, double,
                                const char *);
template Option Command::number(const char *, const char *, std::optional<uint32_t> &, double,
                                double, const char *);
template Option Command::number(const char *, const char *, size_t &, double, double, const char *);
template Option Command::number(const char *, const char *, double &, double, double, const char *);

Option Command::file(const char *name, std::string &path, const char *help) {
    CLI::Option &option = *app_->add_option(name, path, help)->type_name("FILE");
    return Option(*option.check(
        [](const std::string &text) { return text.empty() ? "'' names no file" : ""; }));
}

Option Command::flag(const char *name, bool &flag, const char *help) {
    return Option(*app_->add_flag(name, flag, help));
}

Option Command::flag(const char *name, std::function<void()> take, const char *help) {
    return Option(*app_->add_flag_callback(name, std::move(take), help));
}

Option Command::parsed(const char *name, const std::string &type,
                       std::function<std::string(const std::string &)> take,
                       const std::string &help) {
    const auto check = [take = std::move(take), name](const std::string &text) {
        const std::string wrong = take(text);
        if (!wrong.empty()) throw CLI::ValidationError(name, wrong);
    };
    return Option(*app_->add_option_function<std::string>(name, check, help)->type_name(type));
}

void Command::footer(const std::string &text) { app_->footer(text); }

void Command::set_action(std::function<void()> action) { app_->callback(std::move(action)); }

} // namespace dtctl
