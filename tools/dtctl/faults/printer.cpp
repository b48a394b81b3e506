#include "dtctl/faults/printer.h"

#include "dtctl/faults/json.h"
#include "dtctl/faults/page.h"

#include <fmt/format.h>

#include <string>

namespace dtctl {
namespace {

using dt::decode::FaultValue;
using dt::decode::LogLine;
using dt::decode::number_size;

class FaultTable : public FaultPrinter {
public:
    using FaultPrinter::FaultPrinter;

    void on_line(const LogLine &line) override {
        if (!lines_) put(heading("log", "time", "text"));
        lines_ = true;
        put(row(type_of(line), line.fault, line.time ? *line.time : weak("(no time)          "),
                line.text ? escape(*line.text) : weak("(no text)")));
    }

    void on_fault_value(const FaultValue &value) override {
        if (!values_ && lines_) put("\n");
        if (!values_) put(heading("kind", "id", "value"));
        values_ = true;
        put(row(type_of(value), value.fault, std::to_string(value.id), text_of(value)));
    }

private:
    std::string heading(const char *type, const char *third, const char *last) const {
        std::string text = row(type, "fault", third, last);
        text.pop_back();
        return strong(text) + '\n';
    }

    static std::string row(const char *type, const std::string &fault, const std::string &third,
                           const std::string &last) {
        return fmt::format("{:<13}  {:<22}  {:<19}  {}\n", type, escape(fault), third, last);
    }

    bool lines_ = false;
    bool values_ = false;
};

class FaultJson : public FaultPrinter {
public:
    using FaultPrinter::FaultPrinter;

    void on_line(const LogLine &line) override { put(text_of(object_of(line)) + '\n'); }
    void on_fault_value(const FaultValue &value) override { put(text_of(object_of(value)) + '\n'); }
};

class FaultCsv : public FaultPrinter {
public:
    FaultCsv(std::FILE *out, Cells cells) : FaultPrinter(out), cells_(cells) {
        put("type,fault,time,id,encoding,value\n");
    }

    void on_line(const LogLine &line) override {
        put_record(type_of(line), line.fault, line.time.value_or(""), "",
                   line.text ? csv_text(*line.text, cells_) : ",");
    }

    void on_fault_value(const FaultValue &value) override {
        put_record(type_of(value), value.fault, "", std::to_string(value.id),
                   number_size(value.kind) == 0 ? "hex," + hex(value.data)
                                                : fmt::format("decimal,{}", value.number));
    }

private:
    void put_record(const char *type, const std::string &fault, const std::string &time,
                    const std::string &id, const std::string &encoded) {
        put(fmt::format("{},{},{},{},{}\n", type, csv_field(escape(fault), cells_), time, id,
                        encoded));
    }

    Cells cells_;
};

} // namespace

const char *const fault_formats_help =
    R"(First the lines of the logs, of type "init" or "run"; then the values, of type register,
register64, register-data, counter, counter64, counter-data or value; all in the file's
order. Integers are shown without a sign, as they are stored. A line whose stamp or text
the device's log no longer holds is shown with what is left of it.

  table  one of lines and one of values: UTF-8 as it is, except \\ for a backslash, \n, \r, \t,
         and \xNN for each byte of other control characters and of what is not UTF-8; data
         as hex; in brackets the signed reading of a negative integer, and data that are text
  --json one object a line: type, fault (fault_hex when not UTF-8); for a line time and text
         (null when missing; "hex" instead of text when not UTF-8); for a value id, and "value"
         (64-bit ones as decimal text, so that no reader rounds them) or "hex" for data
  --csv  a heading and one record a line or value, quoted where RFC 4180 asks for it; encoding is
         decimal, text or hex (data, and texts that are not UTF-8 or hold control characters
         other than tabs and line feeds), empty for a missing text; names escaped as above. What
         a spreadsheet would take for a formula gets a ' in front, as for a collection's values
  --html one page with a timeline, the lines, and the values with their courses, to search and
         to filter in any browser; texts as in the table; all in one file, nothing is fetched. The
         fault log file does not hold the levels of the lines, so it tells the logs apart, not the
         levels)";

std::string text_of(const FaultValue &value) {
    const size_t size = number_size(value.kind);
    if (size != 0) return signed_too(value.number, size);
    if (value.data.empty() || !is_plain_text(value.data)) return hex(value.data);
    return fmt::format("{} ({})", hex(value.data), escape(value.data));
}

std::unique_ptr<FaultPrinter> make_fault_printer(const OutputOptions &options, std::FILE *out) {
    switch (options.format) {
    case Format::json:
        return std::make_unique<FaultJson>(out);
    case Format::csv:
        return std::make_unique<FaultCsv>(out, options.cells);
    case Format::html:
        return std::make_unique<FaultPage>(out);
    default:
        return std::make_unique<FaultTable>(out);
    }
}

} // namespace dtctl
