// What a program says to a command line that it cannot follow.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace dtctl {

// The words of a command line without the program's name. "help" alone or in front of a command
// is made "--help" behind it.
std::vector<std::string> words_of(int argc, char **argv);

// Takes the words of a command line. Throws CLI::ParseError.
void parse_words(CLI::App &app, std::vector<std::string> words);

// One line for what parse_words threw: what is wrong, in the user's words, the option or command
// that was perhaps meant, and where to read on.
std::string usage_error(const CLI::App &app, const std::vector<std::string> &words,
                        const CLI::ParseError &error);

} // namespace dtctl
