// Rendering a table into a byte buffer.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <dt/table.h>

namespace {

using namespace bench;

constexpr int types[] = {DTTABLE_TEXT, DTTABLE_INT32, DTTABLE_DOUBLE, DTTABLE_INT64, DTTABLE_INT32};

void set_cell(DTTable *table, int row, int column) {
    const int32_t int32 = cell_number(row, column);
    const int64_t int64 = int32;
    const double real = cell_real(row, column);
    switch (cell_type(column)) {
    case Cell::text:
        return DTTable_Set(table, row, column, cell_text(row, column).c_str());
    case Cell::real:
        return DTTable_Set(table, row, column, &real);
    case Cell::int64:
        return DTTable_Set(table, row, column, &int64);
    default:
        return DTTable_Set(table, row, column, &int32);
    }
}

DTTable *make_table(const TableSize &size) {
    DTTable *table = DTTable_New();
    for (int column = 0; column < size.columns; ++column) {
        const Cell type = cell_type(column);
        DTTable_SetTitle(table, column, "title", types[static_cast<int>(type)], cell_format(type),
                         'R');
    }
    for (int row = 0; row < size.rows; ++row)
        for (int column = 0; column < size.columns; ++column) set_cell(table, row, column);
    return table;
}

class DtTable {
public:
    explicit DtTable(const TableSize &size)
        : size_(size), table_(make_table(size)), buffer_(DTBuf_New(1, 1024, 1024)) {
        (*this)();
        for (const DTListNode *node = table_->columns->head; node; node = node->next)
            widths_.push_back(
                static_cast<size_t>(reinterpret_cast<const DTTableColumn *>(node->value)->width));
    }
    DtTable(const DtTable &) = delete;
    ~DtTable() {
        DTBuf_Release(buffer_);
        DTTable_Release(table_);
    }

    // The area of the first rendering is used again, as a device would.
    void operator()() {
        buffer_->length = 0;
        DTTable_ShowToBuf(table_, buffer_);
    }
    std::string kept() {
        (*this)();
        return words_of(text());
    }
    size_t operations() const { return size_.cells(); }

    std::string text() const { return std::string(buffer_->data, buffer_->data + buffer_->length); }
    const DTListNode *rows() const { return table_->rows->head; }
    size_t width(int column) const { return widths_[static_cast<size_t>(column)]; }

private:
    TableSize size_;
    DTTable *table_;
    DTBuf *buffer_;
    std::vector<size_t> widths_;
};

// Tables of different sizes side by side: their cells are all they have in common.
struct DtCells : DtTable {
    using DtTable::DtTable;
    std::string kept() { return words_of(text()).substr(0, strlen("title")); }
};

// Formats each number once, adds it up, and copies its text to where it belongs. The values lie in
// the table's own cells; widths, titles, rules and the footer are there already.
class LimitTable {
public:
    explicit LimitTable(const TableSize &size) : size_(size), sample_(size) {
        sample_();
        whole_ = sample_.text();
        const size_t line = whole_.find('\n') + 1;
        rows_at_ = 2 * line;
        footer_at_ = rows_at_ + line * static_cast<size_t>(size.rows);
        out_.resize(whole_.size());
    }

    void operator()() {
        memcpy(out_.data(), whole_.data(), rows_at_);
        char *to = out_.data() + rows_at_;
        memset(to, ' ', footer_at_ - rows_at_);
        for (const DTListNode *row = sample_.rows(); row; row = row->next)
            to = put_row(to, reinterpret_cast<const DTList *>(row->value)->head);
        memcpy(to, whole_.data() + footer_at_, whole_.size() - footer_at_);
        use(sums_);
    }
    std::string kept() {
        (*this)();
        return out_ == whole_ ? words_of(out_) : "other bytes";
    }
    size_t operations() const { return size_.cells(); }

private:
    char *put_row(char *to, const DTListNode *node) {
        for (int column = 0; node; ++column, node = node->next) {
            to += sample_.width(column);
            put_cell(to, column, *reinterpret_cast<const DTTableCell *>(node->value));
        }
        *to = '\n';
        return to + 1;
    }

    void put_cell(char *end, int column, const DTTableCell &cell) {
        char text[100];
        const Cell type = cell_type(column);
        if (type == Cell::text) {
            const size_t length = static_cast<size_t>(cell.text_len);
            memcpy(end - length, cell.text, length);
            return;
        }
        const double number = type == Cell::real    ? cell.value.f64
                              : type == Cell::int64 ? static_cast<double>(cell.value.i64)
                                                    : cell.value.i32;
        const size_t length = format_number(text, sizeof text, type, number);
        memcpy(end - length, text, length);
        sums_[column] += number;
    }

    TableSize size_;
    DtTable sample_;
    std::string whole_, out_;
    size_t rows_at_ = 0, footer_at_ = 0;
    double sums_[10] = {};
};

const Family table([] {
    for (const TableSize &size : table_sizes) {
        contend<DtTable>("table cell, " + size.text(), libdt, size);
        contend<LimitTable>("table cell, " + size.text(), limit, size);
    }
    // How the cost of a cell grows with the table.
    contend<DtCells>("table cell, large to small", libdt, table_sizes[2]);
    contend<DtCells>("table cell, large to small", "20 x 5", table_sizes[0]);
});

} // namespace
