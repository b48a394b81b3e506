// Results in rows: a table for people, lines of JSON or CSV for programs.
#pragma once

#include "fleet/store/record.h"
#include "fleet/store/store.h"
#include "host/command.h"
#include "host/output.h"
#include "host/text.h"

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <string>
#include <vector>

namespace dtfleet {

enum class Form { automatic, table, json, csv, influx };

// Adds --format, one of the names: "table", "json", ... Without it a terminal gets a table, if that
// is among them, and anything else lines of JSON.
void add_format(dtctl::Command &command, Form &form, std::initializer_list<Form> forms);

// Lines of JSON unless a terminal reads.
Form chosen(Form form);

// One field of a row, in each form.
// NOLINTNEXTLINE(bugprone-exception-escape): JSON's null does not say that it never throws
struct Cell {
    std::string shown{};           // in a table
    nlohmann::ordered_json json{}; // null: not known
    std::string csv{};             // a field, quoted as needed
    std::string suffix{};          // of its name in JSON: "_hex"
    std::string member{};          // its name in JSON, when not its column's
};

Cell text_cell(const std::string &bytes, dtctl::Cells cells = dtctl::Cells::guarded);
Cell number_cell(uint64_t number);
Cell flag_cell(bool flag, const char *yes, const char *no); // as a table shows it
Cell time_cell(Microseconds time);                          // 0: unknown. Microseconds for programs
Cell seconds_cell(Microseconds duration);                   // likewise
Cell identity_cell(std::optional<uint16_t> identity);       // four hex digits
Cell type_cell(dt::decode::Kind type, StoredValue::Form form); // "gone" for a key that is missing

// What a value is depends on its series. CSV: two fields, the encoding and the value.
Cell value_cell(const Series &series, const StoredValue &value,
                dtctl::Cells cells = dtctl::Cells::guarded);

struct Column {
    const char *name; // in JSON and CSV
    const char *title;
    bool is_number = false; // at the right in a table
};

class Listing {
public:
    // form: not automatic, not influx.
    Listing(Form form, std::vector<Column> columns, dtctl::Output &out);

    void add(const std::vector<Cell> &row);

    // Puts out a table, which must know all rows.
    void end();

private:
    void put_table();

    Form form_;
    std::vector<Column> columns_;
    dtctl::Output &out_;
    std::vector<std::vector<std::string>> rows_; // of the table
};

// "4 s ago", "3 min ago", "never" for 0.
std::string ago(Microseconds time, Microseconds now);

} // namespace dtfleet
