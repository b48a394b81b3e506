#include "dtctl/output/printer.h"

#include "dtctl/output/csv_printer.h"
#include "dtctl/output/json_printer.h"
#include "dtctl/output/table_printer.h"
#include "host/text.h"
#include "host/time.h"

#include <utility>

namespace dtctl {

const char *const formats_help =
    R"(Values are printed as they complete. Integers are shown without a sign, as they travel;
the table adds the signed reading of a negative one in brackets. A self-test prints a
line of type "selftest" for each collector before its results.

  table  one line a value; UTF-8 text as it is, except \\ for a backslash, \n, \r, \t, and
         \xNN for each byte of other control characters and of what is not UTF-8; buffers as
         hex; #N for a collector that the device did not name
  --json one object a line: device (its address), identity (hex), collector (null when not
         named; collector_hex instead when its name is not UTF-8), index, section, key, type,
         and the value: "value" for an int (number) and for a long (decimal text, so that no
         reader rounds it), "text" for a string in UTF-8, "hex" for any other string and for
         buffers; control characters as \uNNNN
  --csv  a heading and one record a value, quoted where RFC 4180 asks for it; encoding is
         decimal, text or hex (buffers, and strings that are not UTF-8 or hold control
         characters other than tabs and line feeds); collector names escaped as in the table.
         A text or name that a spreadsheet would execute (it begins with =, +, -, @ or a tab)
         gets a ' in front, and so does one that begins with a '; --csv-raw leaves them alone

Control characters are C0, DEL, C1, the line breaks U+2028 and U+2029, and those that change
the direction of text.

--times adds the time at which the run began: in JSON as the first member, in CSV as the
first column, as 2026-01-31T08:15:00Z. The heading of CSV is printed once, whatever follows.)";

void Printer::start(const std::string &device, std::time_t when) {
    device_ = device;
    if (options_.times) time_ = utc_text(when);
}

void Printer::on_opening(const dt::decode::Opening &opening) {
    identity_ =
        hex({reinterpret_cast<const char *>(opening.identity.data()), opening.identity.size()});
    heading_is_due_ = true;
}

void Printer::on_selftest(const dt::decode::SelfTest &test) {
    head();
    put_selftest(test);
}

void Printer::on_value(const dt::decode::Value &value) {
    head();
    put_value(value);
}

void Printer::end() {
    head();
    flush();
}

void Printer::head() {
    if (std::exchange(heading_is_due_, false)) put_heading();
}

std::unique_ptr<Printer> make_printer(const OutputOptions &options, std::FILE *out) {
    switch (options.format) {
    case Format::json:
        return std::make_unique<JsonPrinter>(options, out);
    case Format::csv:
        return std::make_unique<CsvPrinter>(options, out);
    default:
        return std::make_unique<TablePrinter>(options, out);
    }
}

const char *type_name(dt::decode::Kind kind) {
    switch (kind) {
    case dt::decode::Kind::int32:
        return "int";
    case dt::decode::Kind::int64:
        return "long";
    case dt::decode::Kind::string:
        return "string";
    default:
        return "buffer";
    }
}

} // namespace dtctl
