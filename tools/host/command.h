// A program's commands and what each takes on the command line. The parser itself stays behind this
// file: every file that sees its headers takes many seconds longer to compile.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace dtctl {

// What more can be said of an option.
class Option {
public:
    explicit Option(CLI::Option &option) : option_(&option) {}

    Option &required();
    Option &shows_default(); // in the help
    Option &excludes(const Option &other);
    Option &needs(const Option &other);

private:
    CLI::Option *option_;
};

// A program, or one of its commands. All values that options are bound to must outlive the parsing;
// they keep what they hold when the option is not given. type: what the help shows as the value.
class Command {
public:
    explicit Command(CLI::App &app) : app_(&app) {}

    // Adds a command to the program.
    Command command(const char *name, const char *help);

    // What is done when the command is chosen. Returns the options that it will be given.
    template <typename Options> Options &runs(void (*act)(const Options &)) {
        auto options = std::make_shared<Options>();
        set_action([options, act] { act(*options); });
        return *options;
    }

    // A word that must be there. Value: std::string.
    Option argument(const char *name, std::string &value, const char *help);

    // Value: std::string, std::optional<std::string>, or std::vector<std::string> for an option
    // that may be repeated. Without dashes in front of its name it is a word that may be left out.
    template <typename Value>
    Option option(const char *name, const char *type, Value &value, const char *help);

    // Number: int, uint16_t, uint32_t, size_t, double, or an optional uint32_t; within the limits.
    template <typename Number> Option number(const char *name, const char *type, Number &number,
                                             double low, double high, const char *help);

    // The name of a file.
    Option file(const char *name, std::string &path, const char *help);

    Option flag(const char *name, bool &flag, const char *help);
    Option flag(const char *name, std::function<void()> take, const char *help);

    // take is given the value, and returns what is wrong with it or nothing.
    Option parsed(const char *name, const std::string &type,
                  std::function<std::string(const std::string &)> take, const std::string &help);

    // What the help ends with.
    void footer(const std::string &text);

private:
    void set_action(std::function<void()> action);

    CLI::App *app_;
};

} // namespace dtctl
