#include "dtctl/output/csv_printer.h"

#include "host/text.h"

#include <fmt/format.h>

namespace dtctl {
namespace {

using dt::decode::Kind;
using dt::decode::Value;

std::string encoded_value(const Value &value, Cells cells) {
    if (value.kind == Kind::int32 || value.kind == Kind::int64) {
        return fmt::format("decimal,{}", value.number);
    }
    if (value.kind == Kind::string) return csv_text(value.bytes, cells);
    return "hex," + hex(value.bytes);
}

} // namespace

void CsvPrinter::put_heading() {
    if (headed_) return;
    if (!time().empty()) put("time,");
    put("device,identity,collector,index,section,key,type,encoding,value\n");
    headed_ = true;
}

std::string CsvPrinter::begin(const std::string &collector) const {
    return fmt::format("{}{}{},{},{}", time(), time().empty() ? "" : ",", device(), identity(),
                       csv_field(escape(collector), options().cells));
}

void CsvPrinter::put_selftest(const dt::decode::SelfTest &test) {
    put(fmt::format("{},,,,{},,\n", begin(test.name), selftest_type));
}

void CsvPrinter::put_value(const Value &value) {
    put(fmt::format("{},{},{},{},{},{}\n", begin(value.collector.value_or("")), value.index,
                    value.section, value.key, type_name(value.kind),
                    encoded_value(value, options().cells)));
}

} // namespace dtctl
