// Tables: any column format, any cells, rendered in the three ways.
#include "input.h"

#include "support/platform.h"

#include <dt/table.h>
#include <printf.h>

namespace {

const DTTableColumn *column_at(const DTTable *table, int32_t col) {
    return reinterpret_cast<const DTTableColumn *>(DTList_Get(table->columns, col));
}

// libc's own opinion: the format reads nothing but the one value that its column provides.
bool is_safe(const char *format, int32_t type) {
    int kinds[4];
    const size_t count = parse_printf_format(format, 4, kinds);
    if (count != 1) return count == 0;
    const bool has_64_bits = kinds[0] & (PA_FLAG_LONG | PA_FLAG_LONG_LONG);
    switch (kinds[0] & ~(PA_FLAG_LONG | PA_FLAG_LONG_LONG | PA_FLAG_SHORT)) {
    case PA_INT:
    case PA_CHAR:
        return type == DTTABLE_TEXT || type == (has_64_bits ? DTTABLE_INT64 : DTTABLE_INT32);
    case PA_DOUBLE:
        return type <= DTTABLE_FLOAT && !has_64_bits;
    default:
        return type == DTTABLE_TEXT && (kinds[0] == PA_STRING || kinds[0] == PA_POINTER);
    }
}

void define_column(DTTable *table, Input &input) {
    const int32_t col = input.number() % 5, type = input.number() % 6;
    const char align = input.number<char>();
    Bytes format = input.text(), title = input.text();
    DTTable_SetTitle(table, col, title.text(), type, format.text(), align);
    const DTTableColumn *column = column_at(table, col);
    assert(!column || is_safe(column->format, column->type));
}

void set_cell(DTTable *table, Input &input) {
    const int32_t row = input.number() % 7, col = input.number() % 5;
    const DTTableColumn *column = column_at(table, col);
    if (!column) return;
    const bool is_wide = column->type == DTTABLE_DOUBLE || column->type == DTTABLE_INT64;
    const bool is_text = column->type == DTTABLE_TEXT;
    Bytes value = is_text ? input.text() : input.bytes(is_wide ? 8 : 4);
    DTTable_Set(table, row, col, value.data());
    const void *stored = DTTable_Get(table, row, col);
    assert(is_text || memcmp(stored, value.data(), value.size()) == 0);
}

void change(DTTable *table, Input &input) {
    const uint8_t operation = input.number() % 32;
    if (operation < 10) return define_column(table, input);
    if (operation < 28) return set_cell(table, input);
    if (operation < 30) return DTTable_SetCaption(table, input.text().text());
    operation == 30 ? DTTable_ClearLines(table) : DTTable_Clear(table);
}

void render(DTTable *table, size_t size) {
    DTBuf *buf = DTBuf_New(1, 16, 16);
    DTTable_ShowToBuf(table, buf);
    const std::string whole(buf->data, buf->data + buf->length);
    DTBuf_Release(buf);
    platform.prints.clear();
    DTTable_Show(table);
    assert(platform.console() == whole);
    Bytes area(size);
    const int32_t count = DTTable_ShowToBuffer(table, area.text(), static_cast<int32_t>(size));
    const size_t kept = static_cast<size_t>(count);
    assert(kept < size && whole.compare(0, kept, area.text(), kept) == 0);
    if (kept == size - 1 || whole.empty()) return;
    // Only the footer of three lines is missing.
    assert(std::count(whole.begin() + count, whole.end(), '\n') == 3);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const size_t area = input.number();
    DTTable *table = DTTable_New();
    while (input.left() != 0) change(table, input);
    render(table, area < 250 ? area + 2 : 4096);
    DTTable_Release(table);
    return 0;
}
