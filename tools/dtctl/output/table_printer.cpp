#include "dtctl/output/table_printer.h"

#include "host/text.h"

#include <fmt/format.h>

#include <utility>

namespace dtctl {
namespace {

using dt::decode::Kind;
using dt::decode::Value;

std::string value_text(const Value &value) {
    switch (value.kind) {
    case Kind::string:
        return escape(value.bytes);
    case Kind::buffer:
        return hex(value.bytes);
    default:
        return signed_too(value.number, value.kind == Kind::int32 ? 4 : 8);
    }
}

} // namespace

void TablePrinter::put_heading() {
    if (std::exchange(again_, true)) put("\n");
    put(fmt::format("device identity {}{}{}\n\n", identity(), time().empty() ? "" : ", ", time()));
    put(strong(fmt::format("{:<19} {:>10} {:>10}  {:<8}  {}", "collector", "section", "key", "type",
                           "value")) +
        '\n');
}

void TablePrinter::put_selftest(const dt::decode::SelfTest &test) {
    put(strong(fmt::format("{:<19} {:>10} {:>10}  {}", escape(test.name), "", "", selftest_type)) +
        '\n');
}

void TablePrinter::put_value(const Value &value) {
    const std::string collector =
        value.collector ? escape(*value.collector) : fmt::format("#{}", value.index);
    put(fmt::format("{:<19} {:>10} {:>10}  {:<8}  {}\n", collector, value.section, value.key,
                    type_name(value.kind), value_text(value)));
}

} // namespace dtctl
