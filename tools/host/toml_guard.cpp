#include "host/toml_guard.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace dtctl {
namespace {

class Scanner {
public:
    Scanner(std::string_view text, const TomlLimits &limits) : text_(text), limits_(limits) {}

    void run() {
        while (at_ < text_.size()) take(text_[at_]);
    }

private:
    void take(char c) {
        if (c == '#') return skip_comment();
        if (c == '"' || c == '\'') return skip_string(c);
        if (c == '.' && ++dots_ >= limits_.parts)
            refuse(fmt::format("a name of more than {} parts", limits_.parts));
        ++at_;
        if (std::string_view("=[]{},\n").find(c) != std::string_view::npos) separate(c);
    }

    // Outside of values, brackets enclose a table's name.
    void separate(char c) {
        if (c == '=' || (c == ']' && !in_value_)) check_name();
        if (c == '=') in_value_ = true;
        if ((c == '[' || c == '{') && in_value_ && ++open_ > limits_.depth)
            refuse(fmt::format("arrays and inline tables more than {} deep", limits_.depth));
        if ((c == ']' || c == '}') && open_ > 0) --open_;
        if (c == '\n') end_line();
        piece_ = at_;
        dots_ = 0;
    }

    void end_line() {
        ++line_;
        if (open_ == 0) in_value_ = false;
    }

    // What stands in front of the separator, without the blanks around it.
    void check_name() const {
        const std::string_view name = text_.substr(piece_, at_ - 1 - piece_);
        const size_t first = std::min(name.find_first_not_of(" \t"), name.size());
        const size_t last = name.find_last_not_of(" \t") + 1;
        if (last > first && last - first > limits_.name)
            refuse(fmt::format("a name of more than {} bytes", limits_.name));
    }

    void skip_comment() { at_ = std::min(text_.find('\n', at_), text_.size()); }

    // Up to the closing quotes; a string of one line that has none ends with its line.
    void skip_string(char quote) {
        const std::string_view three = quote == '"' ? R"(""")" : "'''";
        const bool lines = text_.substr(at_).starts_with(three);
        const std::string_view closing = three.substr(lines ? 0 : 2);
        at_ += closing.size();
        while (at_ < text_.size() && !text_.substr(at_).starts_with(closing)) {
            if (quote == '"' && text_[at_] == '\\' && text_.size() - at_ > 1) ++at_;
            if (text_[at_] == '\n' && !lines) return;
            if (text_[at_++] == '\n') ++line_;
        }
        at_ = std::min(at_ + closing.size(), text_.size());
        // Up to two quotes in front of the closing ones belong to the string.
        for (int i = 0; lines && i < 2 && at_ < text_.size() && text_[at_] == quote; ++i) ++at_;
    }

    [[noreturn]] void refuse(const std::string &reason) const {
        throw Failure(Exit::broken, fmt::format("line {}: {}", line_, reason));
    }

    std::string_view text_;
    TomlLimits limits_;
    size_t at_ = 0;
    size_t line_ = 1;
    size_t piece_ = 0; // where the text behind the last separator begins
    size_t dots_ = 0;  // in that text, outside of strings
    size_t open_ = 0;  // arrays and inline tables
    bool in_value_ = false;
};

} // namespace

void guard_toml(std::string_view text, const TomlLimits &limits) {
    if (text.size() > limits.size) {
        throw Failure(Exit::broken, fmt::format("more than {} KiB of TOML", limits.size / 1024));
    }
    Scanner(text, limits).run();
}

} // namespace dtctl
