#include "host/usage.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <string_view>

namespace dtctl {
namespace {

using Words = std::vector<std::string>;

bool is_option(const std::string &word) { return word.size() > 1 && word.front() == '-'; }

Words commands_of(const CLI::App &app) {
    Words names;
    for (const CLI::App *command : app.get_subcommands({})) names.push_back(command->get_name());
    return names;
}

bool is_command(const CLI::App &app, const std::string &word) {
    const Words names = commands_of(app);
    return std::find(names.begin(), names.end(), word) != names.end();
}

bool begins_with_no_command(const CLI::App &app, const Words &words) {
    return !words.empty() && !is_option(words.front()) && !is_command(app, words.front());
}

// What of a word counts when it is compared: neither dashes nor capitals, nor a value behind "=".
std::string core(std::string_view word) {
    word.remove_prefix(std::min(word.find_first_not_of('-'), word.size()));
    std::string result(word.substr(0, word.find('=')));
    for (char &c : result) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    return result;
}

// How many letters are to be inserted, left out, changed, or swapped with their neighbours.
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> before, last(to.size() + 1), row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= from.size(); ++i) {
        before = std::exchange(last, row);
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            row[j] =
                std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (from[i - 1] != to[j - 1])});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[to.size()];
}

// What was perhaps meant: the shortest that has the word in it, or the nearest if it is near.
std::string suggestion(const std::string &word, const Words &names) {
    const std::string typed = core(word);
    const std::string *best = nullptr;
    size_t least = std::max<size_t>(typed.size() / 3, 1) + 1;
    for (const std::string &name : names) {
        const size_t place = core(name).find(typed);
        const bool has_it =
            !typed.empty() && (place == 0 || (place != name.npos && typed.size() > 2));
        const size_t far = has_it ? 0 : distance(typed, core(name));
        if (far < least || (best && far == least && name.size() < best->size())) best = &name;
        least = std::min(least, far);
    }
    return best ? fmt::format("; did you mean {}?", *best) : "";
}

std::string no_command(const CLI::App &app, const std::string &word) {
    return fmt::format("there is no command '{}'{}", word, suggestion(word, commands_of(app)));
}

std::string no_option(const CLI::App &command, const std::string &word) {
    Words names;
    for (const CLI::Option *option : command.get_options())
        for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
    return fmt::format("there is no option {}{}", word.substr(0, word.find('=')),
                       suggestion(word, names));
}

// What nobody expected, in the order in which it was typed.
struct Unexpected {
    std::string option; // the first one
    bool in_front;      // of the command
    std::string arguments;
};

Unexpected unexpected(const CLI::App &app, const Words &words) {
    Words left = app.remaining(true);
    Unexpected result{"", true, ""};
    bool in_front = true, options = true;
    for (const std::string &word : words) {
        const auto found = std::find(left.begin(), left.end(), word);
        in_front = in_front && !is_command(app, word);
        options = options && word != "--";
        if (found == left.end() || word == "--") continue;
        left.erase(found);
        if (!options || !is_option(word)) result.arguments += fmt::format(" '{}'", word);
        if (!options || !is_option(word) || !result.option.empty()) continue;
        result.option = word;
        result.in_front = in_front;
    }
    return result;
}

bool is_kind(const CLI::ParseError &error, CLI::ExitCodes kind) {
    return error.get_exit_code() == static_cast<int>(kind);
}

// The parser's own words, where they can be understood.
std::string plain(const CLI::ParseError &error) {
    constexpr std::string_view conversion = "Could not convert: ";
    std::string text = error.what();
    const std::string option = text.substr(0, text.find(':'));
    const bool mismatch = is_kind(error, CLI::ExitCodes::ArgumentMismatch);
    if (mismatch && text.ends_with(" missing")) return option + " needs a value";
    if (mismatch && text.find("At Most") != text.npos) return option + " is given more than once";
    const size_t equals = text.find(" = ");
    if (!text.starts_with(conversion) || equals == text.npos) return text;
    return text.replace(equals, 3, " cannot be ").substr(conversion.size());
}

std::string problem(const CLI::App &app, const CLI::App &command, const Words &words,
                    const CLI::ParseError &error) {
    if (begins_with_no_command(app, words)) return no_command(app, words.front());
    const Unexpected what = unexpected(app, words);
    if (!what.option.empty() && what.in_front && &command != &app)
        return fmt::format("there is no option {} in front of the command", what.option);
    if (!what.option.empty()) return no_option(command, what.option);
    if (&command == &app) return "a command is missing";
    if (is_kind(error, CLI::ExitCodes::ExtrasError)) return "too many arguments:" + what.arguments;
    return plain(error);
}

} // namespace

std::vector<std::string> words_of(int argc, char **argv) {
    Words words(argv + std::min(argc, 1), argv + argc);
    if (words.empty() || words.front() != "help") return words;
    words.erase(words.begin());
    words.resize(std::min<size_t>(words.size(), 1));
    words.push_back("--help");
    return words;
}

void parse_words(CLI::App &app, std::vector<std::string> words) {
    if (begins_with_no_command(app, words)) throw CLI::ExtrasError(words);
    std::reverse(words.begin(), words.end());
    app.parse(words);
}

std::string usage_error(const CLI::App &app, const std::vector<std::string> &words,
                        const CLI::ParseError &error) {
    const auto chosen = app.get_subcommands();
    const CLI::App &command = chosen.empty() ? app : *chosen.front();
    return fmt::format("{} (see {}{} --help)", problem(app, command, words, error), app.get_name(),
                       chosen.empty() ? "" : " " + command.get_name());
}

} // namespace dtctl
