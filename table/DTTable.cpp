#include "table/DTTable.h"

#include "base/owner.h"
#include "base/text.h"
#include "foundation/DTMem.h"
#include "table/format.h"

#include <stddef.h>
#include <string.h>

namespace {

static_assert(sizeof(void *) != 4 || sizeof(DTTable) == 108, "as laid out on the device");
static_assert(offsetof(DTTableColumn, sum) == 232 && offsetof(DTTableColumn, width) == 240);
static_assert(offsetof(DTTableCell, value) == 104 && sizeof(DTTableCell) == 112);

constexpr DTListFree free_record = dt::release_value<DTMem_LocalFree>;
constexpr DTListFree release_row = dt::release_value<DTList_Release>;

template <typename T> T *new_record() {
    void *record = DTMem_LocalMalloc(sizeof(T));
    // cppcheck-suppress memsetClassFloat ; all zero bits are 0.0 too
    if (record) memset(record, 0, sizeof(T));
    return static_cast<T *>(record);
}

// What a list holds at a position; null where it holds nothing.
template <typename T> T *at(const DTList *list, int32_t position) {
    return position < 0 ? nullptr : reinterpret_cast<T *>(DTList_Get(list, position));
}

// Drops the elements behind the first count. Once along the list: there may be many of both.
void cut(DTList *list, int32_t count) {
    DTListLink *link = &list->head;
    for (int32_t i = 0; i < count; ++i) link = &(*link)->next;
    DTList rest = {list->length - count, 0, list->free_value, *link};
    *link = nullptr;
    list->length = count;
    DTList_RemoveAll(&rest);
}

// Puts an object at an empty position or beyond the end. Without memory for the positions up to
// there the list stays as it was; false then.
bool put(DTList *list, int32_t position, void *object) {
    const int32_t before = list->length;
    DTList_Set(list, position, reinterpret_cast<uintptr_t>(object));
    if (position < list->length) return true;
    cut(list, before);
    return false;
}

// The record at a position, made if there is none; null, with the list as it was, without memory.
template <typename T> T *record_at(DTList *list, int32_t position) {
    if (T *found = at<T>(list, position)) return found;
    dt::Owner<T, DTMem_LocalFree> made(new_record<T>());
    return made && put(list, position, made.get()) ? made.take() : nullptr;
}

DTTableColumn *column_at(const DTTable *table, int32_t col) {
    return table ? at<DTTableColumn>(table->columns, col) : nullptr;
}

// The cell at a position; it and its row are made if there are none.
DTTableCell *cell_at(DTTable *table, int32_t row, int32_t col) {
    if (DTList *found = at<DTList>(table->rows, row)) return record_at<DTTableCell>(found, col);
    dt::Owner<DTList, DTList_Release> made(DTList_New(0, free_record));
    DTTableCell *cell = made ? record_at<DTTableCell>(made.get(), col) : nullptr;
    if (!cell || !put(table->rows, row, made.get())) return nullptr;
    made.take();
    return cell;
}

void store_value(DTTableCell *cell, const DTTableColumn *column, const void *value) {
    const bool wide = column->type == DTTABLE_DOUBLE || column->type == DTTABLE_INT64;
    if (column->type == DTTABLE_TEXT)
        cell->text_len = dt::format_text(cell->text, column->format, value);
    else
        memmove(&cell->value, value, wide ? 8 : 4);
}

} // namespace

DTTable *DTTable_New(void) {
    dt::Owner<DTTable, DTMem_LocalFree> table(new_record<DTTable>());
    dt::Owner<DTList, DTList_Release> columns(table ? DTList_New(0, free_record) : nullptr);
    dt::Owner<DTList, DTList_Release> rows(columns ? DTList_New(0, release_row) : nullptr);
    if (!rows) return nullptr;
    table->columns = columns.take();
    table->rows = rows.take();
    return table.take();
}

void DTTable_Release(DTTable *table) {
    if (!table) return;
    DTList_Release(table->rows);
    DTList_Release(table->columns);
    DTMem_LocalFree(table);
}

void DTTable_SetCaption(DTTable *table, const char *caption) {
    if (table) dt::copy_text(table->caption, caption);
}

void DTTable_SetTitle(DTTable *table, int32_t col, const char *title, int32_t type,
                      const char *format, char align) {
    if (!table || col < 0 || !dt::format_suits(format, type)) return;
    DTTableColumn *column = record_at<DTTableColumn>(table->columns, col);
    if (!column) return;
    dt::copy_text(column->title, title);
    column->title_len = static_cast<int32_t>(strlen(column->title));
    column->type = type;
    column->align = align;
    dt::copy_text(column->format, format);
    column->sum.i64 = 0;
    column->width = 0;
}

void DTTable_Set(DTTable *table, int32_t row, int32_t col, const void *value) {
    const DTTableColumn *column = column_at(table, col);
    if (!column || row < 0 || (!value && column->type != DTTABLE_TEXT)) return;
    if (DTTableCell *cell = cell_at(table, row, col)) store_value(cell, column, value);
}

void *DTTable_Get(const DTTable *table, int32_t row, int32_t col) {
    const DTTableColumn *column = column_at(table, col);
    DTTableCell *cell = column ? at<DTTableCell>(at<DTList>(table->rows, row), col) : nullptr;
    if (!cell) return nullptr;
    return column->type == DTTABLE_TEXT ? static_cast<void *>(cell->text) : &cell->value;
}

int32_t DTTable_GetColNum(const DTTable *table) { return table ? table->columns->length : 0; }

int32_t DTTable_GetRowNum(const DTTable *table) { return table ? table->rows->length : 0; }

void DTTable_ClearLines(DTTable *table) {
    for (DTListNode *node = table ? table->rows->head : nullptr; node; node = node->next) {
        release_row(node->value);
        node->value = 0;
    }
}

void DTTable_Clear(DTTable *table) {
    if (!table) return;
    DTList_RemoveAll(table->rows);
    DTList_RemoveAll(table->columns);
}
