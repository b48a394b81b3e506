#include "fleet/commands/listing.h"

#include "fleet/store/number.h"
#include "host/json_text.h"
#include "host/terminal.h"
#include "host/time.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>

namespace dtfleet {
namespace {

using Type = dt::decode::Kind;

constexpr const char *form_names[] = {"", "table", "json", "csv", "influx"};

const char *name_of(Form form) { return form_names[static_cast<size_t>(form)]; }

// Columns on a terminal: every character takes one, whatever its bytes.
size_t width_of(std::string_view text) {
    size_t width = 0;
    for (; !text.empty(); ++width)
        text.remove_prefix(std::max<size_t>(dtctl::character_length(text), 1));
    return width;
}

Cell number_value(const Series &series, uint64_t number) {
    const std::string text = series.is_signed ? std::to_string(signed_number(number, series.type))
                                              : std::to_string(number);
    Cell cell;
    cell.shown =
        series.is_signed ? text : dtctl::signed_too(number, series.type == Type::int32 ? 4 : 8);
    // 64 bits as a text, since programs that read JSON cut larger numbers.
    cell.json = series.type == Type::int64 ? nlohmann::ordered_json(text)
                                           : nlohmann::ordered_json::parse(text);
    cell.csv = "decimal," + text;
    cell.member = "value";
    return cell;
}

} // namespace

void add_format(dtctl::Command &command, Form &form, std::initializer_list<Form> forms) {
    std::string names;
    for (const Form one : forms)
        names += fmt::format("{}{}", names.empty() ? "" : "|", name_of(one));
    const std::vector<Form> allowed(forms);
    const auto take = [&form, allowed, names](const std::string &name) -> std::string {
        for (const Form one : allowed) {
            if (name != name_of(one)) continue;
            form = one;
            return "";
        }
        return fmt::format("'{}' is not one of {}", name, names);
    };
    command.parsed("--format", names, take,
                   allowed.front() == Form::table
                       ? "Instead of a table on a terminal and lines of JSON elsewhere"
                       : "Instead of lines of JSON");
}

Form chosen(Form form) {
    if (form != Form::automatic) return form;
    return ::isatty(STDOUT_FILENO) != 0 ? Form::table : Form::json;
}

Cell text_cell(const std::string &bytes, dtctl::Cells cells) {
    Cell cell;
    const bool is_text = dtctl::is_utf8(bytes);
    cell.shown = dtctl::escape(bytes);
    cell.json = is_text ? bytes : dtctl::hex(bytes);
    cell.csv = dtctl::csv_field(cell.shown, cells);
    if (!is_text) cell.suffix = "_hex";
    return cell;
}

Cell number_cell(uint64_t number) {
    return {std::to_string(number), number, std::to_string(number)};
}

Cell flag_cell(bool flag, const char *yes, const char *no) {
    return {flag ? yes : no, flag, flag ? "true" : "false"};
}

Cell time_cell(Microseconds time) {
    if (time == 0) return {"never"};
    return {dtctl::utc_text(time / 1'000'000), time, std::to_string(time)};
}

Cell seconds_cell(Microseconds duration) {
    return {fmt::format("{:.3f} s", static_cast<double>(duration) / 1e6), duration,
            std::to_string(duration)};
}

Cell identity_cell(std::optional<uint16_t> identity) {
    if (!identity) return {};
    const std::string text = fmt::format("{:04x}", *identity);
    return {text, text, text};
}

Cell type_cell(Type type, StoredValue::Form form) {
    constexpr const char *names[] = {"int", "long", "string", "buffer"};
    const char *name =
        form == StoredValue::Form::gone ? "gone" : names[static_cast<size_t>(type) - 1];
    return {name, name, name};
}

Cell value_cell(const Series &series, const StoredValue &value, dtctl::Cells cells) {
    if (value.form == StoredValue::Form::gone) return {"gone", nullptr, ",", "", "value"};
    if (value.form == StoredValue::Form::number) return number_value(series, value.number);
    const bool is_string = series.type == Type::string;
    const bool is_text = is_string && dtctl::is_utf8(value.bytes);
    Cell cell;
    cell.shown = is_string ? dtctl::escape(value.bytes) : dtctl::hex(value.bytes);
    cell.json = is_text ? value.bytes : dtctl::hex(value.bytes);
    cell.csv = is_string ? dtctl::csv_text(value.bytes, cells) : "hex," + dtctl::hex(value.bytes);
    cell.member = is_text ? "text" : "hex";
    return cell;
}

Listing::Listing(Form form, std::vector<Column> columns, dtctl::Output &out)
    : form_(form), columns_(std::move(columns)), out_(out) {
    if (form_ != Form::csv) return;
    std::string names;
    for (const Column &column : columns_)
        names += fmt::format("{}{}", names.empty() ? "" : ",", column.name);
    out_.put(names + '\n');
}

void Listing::add(const std::vector<Cell> &row) {
    std::string line;
    dtctl::Object object;
    for (size_t i = 0; i < row.size(); ++i) {
        if (form_ == Form::csv) line += (i == 0 ? "" : ",") + row[i].csv;
        if (form_ == Form::json)
            object[row[i].member.empty() ? columns_[i].name + row[i].suffix : row[i].member] =
                row[i].json;
    }
    if (form_ == Form::json) line = dtctl::text_of(object);
    if (form_ != Form::table) return out_.put(line + '\n');
    rows_.emplace_back();
    for (const Cell &cell : row) rows_.back().push_back(cell.shown);
}

void Listing::end() {
    if (form_ == Form::table && !rows_.empty()) put_table();
}

void Listing::put_table() {
    std::vector<size_t> widths;
    for (size_t i = 0; i < columns_.size(); ++i) {
        widths.push_back(width_of(columns_[i].title));
        for (const auto &row : rows_) widths[i] = std::max(widths[i], width_of(row[i]));
    }
    const auto line_of = [&](const auto &field) {
        std::string line;
        for (size_t i = 0; i < columns_.size(); ++i) {
            const std::string text = field(i);
            const std::string blanks(widths[i] - width_of(text), ' ');
            line += i == 0 ? "" : "  ";
            line += columns_[i].is_number ? blanks + text : text + blanks;
        }
        return line.substr(0, line.find_last_not_of(' ') + 1);
    };
    out_.put(out_.strong(line_of([&](size_t i) { return columns_[i].title; })) + '\n');
    for (const auto &row : rows_) out_.put(line_of([&](size_t i) { return row[i]; }) + '\n');
}

std::string ago(Microseconds time, Microseconds now) {
    if (time == 0) return "never";
    const int64_t seconds = std::max<int64_t>(now - time, 0) / 1'000'000;
    if (seconds < 120) return fmt::format("{} s ago", seconds);
    if (seconds < 7200) return fmt::format("{} min ago", seconds / 60);
    if (seconds < 172'800) return fmt::format("{} h ago", seconds / 3600);
    return fmt::format("{} days ago", seconds / 86'400);
}

} // namespace dtfleet
