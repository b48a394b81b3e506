// Tables of texts: the numbers are formatted for each rendering, as the library does.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <libsmartcols/libsmartcols.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

using namespace bench;

class Table {
public:
    explicit Table(const TableSize &size) : size_(size), table_(scols_new_table()) {
        scols_table_set_termforce(table_, SCOLS_TERMFORCE_NEVER); // lines of any length
        for (int column = 0; column < size.columns; ++column)
            scols_table_new_column(table_, "title", 0, SCOLS_FL_RIGHT);
        for (int row = 0; row < size.rows; ++row) {
            libscols_line *line = scols_table_new_line(table_, nullptr);
            for (int column = 0; column < size.columns; ++column)
                scols_line_set_data(line, index(column), cell_text(row, column).c_str());
        }
    }
    Table(const Table &) = delete;
    ~Table() { scols_unref_table(table_); }

    void operator()() {
        for (int row = 0; row < size_.rows; ++row) set_numbers(row);
        free(text_);
        scols_print_table_to_string(table_, &text_);
    }

    std::string kept() {
        (*this)();
        return words_of(text_);
    }
    size_t operations() const { return size_.cells(); }

private:
    static size_t index(int number) { return static_cast<size_t>(number); }

    void set_numbers(int row) {
        libscols_line *line = scols_table_get_line(table_, index(row));
        for (int column = 0; column < size_.columns; ++column) {
            if (cell_type(column) == Cell::text) continue;
            char text[100];
            const Cell type = cell_type(column);
            format_number(text, sizeof text, type,
                          type == Cell::real ? cell_real(row, column) : cell_number(row, column));
            scols_line_set_data(line, index(column), text);
        }
    }

    TableSize size_;
    libscols_table *table_;
    char *text_ = nullptr;
};

const Family smartcols([] {
    for (const TableSize &size : table_sizes)
        contend<Table>("table cell, " + size.text(), "libsmartcols", size);
});

} // namespace
