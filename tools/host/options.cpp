#include "host/options.h"

#include <fmt/format.h>

#include <string>

namespace dtctl {

// CLI::Range lets "nan" pass, and says 0.100000.
void limit(CLI::Option &option, double low, double high) {
    const auto check = [low, high](const std::string &text) -> std::string {
        double number = 0;
        if (!CLI::detail::lexical_cast(text, number) || number != number)
            return fmt::format("'{}' is not a number", text);
        if (number >= low && number <= high) return "";
        return fmt::format("{} is not within {} to {}", text, low, high);
    };
    option.check(CLI::Validator(check, fmt::format("{} to {}", low, high)));
}

} // namespace dtctl
