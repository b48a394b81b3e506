#include "dtctl/output/output.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace dtctl {
namespace {

[[noreturn]] void refuse(const std::string &path, const char *reason) {
    throw Failure(Exit::failed, fmt::format("cannot write {}: {}", escape(path), reason));
}

// By whatever names. What is no file, like a terminal, may well be both.
bool is_same_file(const std::string &path, const std::string &other) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) &&
           std::filesystem::equivalent(path, other, error);
}

} // namespace

Stream open_output(const std::string &path, const std::string &input) {
    if (path.empty()) return {stdout, [](std::FILE *) { return 0; }};
    if (is_same_file(path, input == "-" ? "/dev/stdin" : input))
        refuse(path, "it is the file to be read");
    if (!input.empty() && input != "-" && ::access(input.c_str(), R_OK) != 0)
        report_unreadable(input);
    std::FILE *file = std::fopen(path.c_str(), "we");
    if (!file) refuse(path, std::strerror(errno));
    return {file, std::fclose};
}

bool shows_colours(std::FILE *out) {
    const char *no_color = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    if ((no_color && *no_color) || (terminal && std::string_view(terminal) == "dumb")) return false;
    return ::isatty(::fileno(out)) != 0;
}

std::string bold(std::string_view text) { return fmt::format("\033[1m{}\033[0m", text); }
std::string faint(std::string_view text) { return fmt::format("\033[2m{}\033[0m", text); }

void Output::put(std::string_view text) {
    if (error_ == 0 && std::fwrite(text.data(), 1, text.size(), out_) != text.size())
        error_ = errno;
}

void Output::flush() {
    if (error_ == 0 && std::fflush(out_) != 0) error_ = errno;
    if (error_ == 0) return;
    const bool reader_left = error_ == EPIPE;
    throw Failure(Exit::failed,
                  reader_left ? ""
                              : std::string("cannot write the output: ") + std::strerror(error_));
}

} // namespace dtctl
