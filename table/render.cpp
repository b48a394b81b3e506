// Totals, widths and the one layout that all renderers share.
#include "table/DTTable.h"

#include "base/nodes.h"
#include "base/owner.h"
#include "base/target.h"
#include "foundation/DTPrint.h"
#include "platform/vrk.h"
#include "table/format.h"

#include <string.h>

namespace {

DTTableColumn *column_of(uintptr_t value) { return reinterpret_cast<DTTableColumn *>(value); }

// The cells of a row, asked for column by column; null where there is none.
class Cells {
public:
    explicit Cells(uintptr_t row)
        : node_(row != 0 ? reinterpret_cast<const DTList *>(row)->head : nullptr) {}

    DTTableCell *next() {
        if (!node_) return nullptr;
        const uintptr_t cell = node_->value;
        node_ = node_->next;
        return reinterpret_cast<DTTableCell *>(cell);
    }

private:
    const DTListNode *node_;
};

void widen(DTTableColumn *column, int32_t length) {
    if (column->width < length + 2) column->width = length + 2;
}

void start_total(DTTableColumn *column) {
    column->sum.i64 = 0;
    column->width = 0;
    widen(column, column->title_len);
}

void add(DTTableValue *sum, int32_t type, const DTTableValue &value) {
    switch (type) {
    case DTTABLE_DOUBLE:
        sum->f64 += value.f64;
        break;
    case DTTABLE_FLOAT:
        sum->f32 += value.f32;
        break;
    case DTTABLE_INT32:
        sum->i32 = static_cast<int32_t>(static_cast<uint32_t>(sum->i32) +
                                        static_cast<uint32_t>(value.i32));
        break;
    default:
        sum->i64 = static_cast<int64_t>(static_cast<uint64_t>(sum->i64) +
                                        static_cast<uint64_t>(value.i64));
    }
}

void add_cell(DTTableColumn *column, DTTableCell *cell) {
    if (column->type != DTTABLE_TEXT) {
        add(&column->sum, column->type, cell->value);
        cell->text_len = dt::format_number(cell->text, column->format, column->type, cell->value);
    }
    widen(column, cell->text_len);
}

void add_row(const DTTable *table, uintptr_t row) {
    Cells cells(row);
    for (const uintptr_t value : dt::nodes(table->columns)) {
        DTTableCell *cell = cells.next();
        if (value != 0 && cell) add_cell(column_of(value), cell);
    }
}

void end_total(DTTableColumn *column) {
    if (column->type == DTTABLE_TEXT)
        column->sum_text[0] = '\0';
    else
        widen(column,
              dt::format_number(column->sum_text, column->format, column->type, column->sum));
}

// Where a rendering goes: a print object, or an area of bytes. What is beyond the room is dropped.
// An area is blanked at once: most of a table is blanks, in short runs.
class Out {
public:
    Out(DTPrint *print, uint64_t room) : print_(print), room_(room) {}
    Out(uint8_t *area, size_t room) : area_(area), room_(room) { memset(area, ' ', room); }

    void repeat(char character, uint64_t count) {
        const size_t kept = take(count);
        if (print_) {
            DTPrint_PrintCh(print_, character, static_cast<int32_t>(kept));
        } else {
            if (character != ' ') memset(area_, character, kept);
            area_ += kept;
        }
    }

    void text(const char *text, int32_t length) {
        const size_t kept = take(static_cast<uint64_t>(length));
        if (print_) {
            print(text, kept, kept == static_cast<size_t>(length));
        } else {
            memcpy(area_, text, kept);
            area_ += kept;
        }
    }

    void line_break() { repeat('\n', 1); }

    // Ends a line that the console gets by itself.
    void end_line() {
        line_break();
        if (print_) DTPrint_Flush(print_);
    }

private:
    size_t take(uint64_t count) {
        const uint64_t kept = count < room_ ? count : room_;
        room_ -= kept;
        return static_cast<size_t>(kept);
    }

    // A print object takes texts whole; of the one that is cut it gets the characters.
    void print(const char *text, size_t kept, bool whole) {
        if (whole) DTPrint_Print(print_, text, 1);
        for (size_t i = 0; !whole && i < kept; ++i) DTPrint_PrintCh(print_, text[i], 1);
    }

    DTPrint *print_ = nullptr;
    uint8_t *area_ = nullptr;
    uint64_t room_;
};

// What a rendering is made of, totals and widths being up to date.
struct Layout {
    const DTTable *table;
    bool whole; // every column position is defined
    bool has_footer;
    uint64_t width; // of all columns
    int32_t caption_len;
    char count[100]; // the footer's text
    int32_t count_len;
};

void measure_columns(Layout *layout) {
    for (const uintptr_t value : dt::nodes(layout->table->columns)) {
        if (value == 0)
            layout->whole = false;
        else
            layout->width += static_cast<uint64_t>(column_of(value)->width);
    }
}

Layout lay_out(DTTable *table, bool has_footer) {
    DTTable_Sum(table);
    Layout layout = {table, true, has_footer, 0, 0, "", 0};
    measure_columns(&layout);
    layout.caption_len = static_cast<int32_t>(strlen(table->caption));
    TMB_snprintf(layout.count, sizeof layout.count, "total count = %d", table->rows->length);
    layout.count_len = static_cast<int32_t>(strlen(layout.count));
    return layout;
}

uint64_t caption_indent(const Layout &layout) {
    const uint64_t length = static_cast<uint64_t>(layout.caption_len);
    return layout.width > length ? (layout.width - length) / 2 : 0;
}

// Characters of the whole rendering with its footer.
uint64_t size_of(const Layout &layout) {
    const uint64_t line = layout.width + 1;
    uint64_t size = 4 * line + static_cast<uint64_t>(layout.count_len) + 1;
    if (layout.caption_len != 0)
        size += 2 * line + caption_indent(layout) + static_cast<uint64_t>(layout.caption_len) + 1;
    for (const uintptr_t row : dt::nodes(layout.table->rows)) size += row != 0 ? line : 1;
    return size;
}

void write_caption(Out &out, const Layout &layout) {
    out.repeat('*', layout.width);
    out.line_break();
    out.repeat(' ', caption_indent(layout));
    out.text(layout.table->caption, layout.caption_len);
    out.line_break();
    out.repeat('*', layout.width);
    out.end_line();
}

void write_aligned(Out &out, const char *text, int32_t length, int32_t width, char align) {
    const uint32_t blanks = static_cast<uint32_t>(width - length);
    uint32_t before = blanks / 2;
    if (align == 'L' || align == 'l') before = 0;
    if (align == 'R' || align == 'r') before = blanks;
    out.repeat(' ', before);
    out.text(text, length);
    out.repeat(' ', blanks - before);
}

void write_titles(Out &out, const Layout &layout) {
    for (const uintptr_t value : dt::nodes(layout.table->columns)) {
        const DTTableColumn *column = column_of(value);
        write_aligned(out, column->title, column->title_len, column->width, 'C');
    }
    out.end_line();
}

void write_rules(Out &out, const Layout &layout) {
    for (const uintptr_t value : dt::nodes(layout.table->columns)) {
        out.repeat(' ', 1);
        out.repeat('-', static_cast<uint64_t>(column_of(value)->width) - 2);
        out.repeat(' ', 1);
    }
    out.end_line();
}

void write_row(Out &out, const Layout &layout, uintptr_t row) {
    Cells cells(row);
    for (const uintptr_t value : dt::nodes(row != 0 ? layout.table->columns : nullptr)) {
        const DTTableColumn *column = column_of(value);
        const DTTableCell *cell = cells.next();
        write_aligned(out, cell ? cell->text : "", cell ? cell->text_len : 0, column->width,
                      column->align);
    }
    out.end_line();
}

void write_footer(Out &out, const Layout &layout) {
    out.repeat('-', layout.width);
    out.end_line();
    out.text(layout.count, layout.count_len);
    out.end_line();
    out.repeat('-', layout.width);
    out.end_line();
}

void write_table(Out out, const Layout &layout) {
    if (!layout.whole) return;
    if (layout.caption_len != 0) write_caption(out, layout);
    write_titles(out, layout);
    write_rules(out, layout);
    for (const uintptr_t row : dt::nodes(layout.table->rows)) write_row(out, layout, row);
    if (layout.has_footer) write_footer(out, layout);
}

} // namespace

void DTTable_Sum(DTTable *table) {
    if (!table) return;
    for (const uintptr_t column : dt::nodes(table->columns))
        if (column != 0) start_total(column_of(column));
    for (const uintptr_t row : dt::nodes(table->rows)) add_row(table, row);
    for (const uintptr_t column : dt::nodes(table->columns))
        if (column != 0) end_total(column_of(column));
}

int32_t DTTable_ShowToBuffer(DTTable *table, char *buffer, int32_t size) {
    if (!table) return 0;
    const bool on_console = !buffer || size == 0;
    const Layout layout = lay_out(table, on_console);
    char line[400];
    dt::Owner<DTPrint, DTPrint_Release> print(on_console ? DTPrint_New(line, sizeof line)
                                                         : DTPrint_New(buffer, size));
    if (!print) return 0;
    DTPrint_SetPrint(print.get(), on_console);
    const uint64_t room = on_console ? UINT64_MAX : static_cast<uint64_t>(size) - 1;
    write_table(Out(print.get(), room), layout);
    return print->length;
}

int32_t DTTable_Show(DTTable *table) { return DTTable_ShowToBuffer(table, nullptr, 0); }

void DTTable_ShowToBuf(DTTable *table, DTBuf *buf) {
    if (!table) return;
    if (dt::is_console(buf)) {
        DTTable_Show(table);
        return;
    }
    const Layout layout = lay_out(table, true);
    const uint64_t size = size_of(layout);
    if (!layout.whole || buf->unit != 1 || size > UINT32_MAX - buf->length) return;
    // The last character goes in first and makes the room for all.
    const uint32_t end = buf->length + static_cast<uint32_t>(size);
    if (!DTBuf_Set(buf, end - 1, "\n", 1)) return;
    write_table(Out(buf->data + buf->length, end - buf->length), layout);
    buf->length = end;
}
