#include "dtctl/output/csv_printer.h"

#include "host/text.h"

#include <fmt/format.h>

namespace dtctl {
namespace {

using dt::decode::Kind;
using dt::decode::Value;

std::string encoded_value(const Value &value) {
    if (value.kind == Kind::int32 || value.kind == Kind::int64) {
        return fmt::format("decimal,{}", value.number);
    }
    if (value.kind == Kind::string) return csv_text(value.bytes);
    return "hex," + hex(value.bytes);
}

} // namespace

void CsvPrinter::on_opening(const dt::decode::Opening &opening) {
    Printer::on_opening(opening);
    if (!headed_ && !time().empty()) put("time,");
    if (!headed_) put("identity,collector,index,section,key,type,encoding,value\n");
    headed_ = true;
}

std::string CsvPrinter::begin() const {
    return time().empty() ? identity() : time() + ',' + identity();
}

void CsvPrinter::on_selftest(const dt::decode::SelfTest &test) {
    put(fmt::format("{},{},,,,{},,\n", begin(), csv_field(escape(test.name)), selftest_type));
}

void CsvPrinter::on_value(const Value &value) {
    put(fmt::format("{},{},{},{},{},{},{}\n", begin(),
                    csv_field(escape(value.collector.value_or(""))), value.index, value.section,
                    value.key, type_name(value.kind), encoded_value(value)));
}

} // namespace dtctl
