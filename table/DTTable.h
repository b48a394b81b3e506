/* Text tables for a debug console: a caption, typed columns with titles, rows of cells. Every
 * rendering totals the numeric columns and makes each column as wide as its longest text.
 *
 * Call DTTable_New, DTTable_SetTitle for every column from 0 on without a gap, DTTable_Set for the
 * cells, then any of the renderers. Rows and columns are lists reached by position: setting or
 * getting a cell costs a walk to it, a rendering one walk over all cells to total and one to write.
 *
 * Positions count from 0; below 0 nothing is stored and null returned. A null table is ignored;
 * results are then null or 0. Texts and values are copied. An operation that needs memory which is
 * not there changes nothing.
 *
 * Sources: DTTable.cpp the table's content, format.cpp the texts of cells and what a format may
 * ask for, render.cpp totals and renderings.
 */
#ifndef DT_TABLE_DTTABLE_H
#define DT_TABLE_DTTABLE_H

#include "../containers/DTBuf.h"
#include "../containers/DTList.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Value types of a column. */
enum {
    DTTABLE_DOUBLE = 0, /* double */
    DTTABLE_FLOAT = 1,  /* float, totalled in single precision, formatted as a double */
    DTTABLE_INT32 = 2,  /* int32_t; the total wraps */
    DTTABLE_INT64 = 3,  /* int64_t; the total wraps */
    DTTABLE_TEXT = 4    /* no total */
};

/* A cell's value or a column's total; the column's type says which member holds it. 4-byte aligned
 * like every tracked block, on any platform layer.
 */
#pragma pack(push, 4)
typedef union DTTableValue {
    double f64;  /* DTTABLE_DOUBLE */
    float f32;   /* DTTABLE_FLOAT */
    int32_t i32; /* DTTABLE_INT32 */
    int64_t i64; /* DTTABLE_INT64 */
} DTTableValue;
#pragma pack(pop)

/* The table; columns and rows belong to it. */
typedef struct DTTable {
    char caption[100]; /* empty: none */
    DTList *columns;   /* of DTTableColumn, 0 where none is defined */
    DTList *rows;      /* of lists of DTTableCell, 0 where a row or a cell was never set */
} DTTable;

/* A column as DTTable_SetTitle defined it, and what the last sum made of it. */
typedef struct DTTableColumn {
    char title[100];    /* always terminated */
    int32_t title_len;  /* characters in title */
    int32_t type;       /* DTTABLE_DOUBLE to DTTABLE_TEXT */
    char align;         /* 'L' 'l' left, 'R' 'r' right, else centred */
    char sum_text[100]; /* the total, formatted as the cells are; empty for text. No renderer shows
                           it, but the column is wide enough for it */
    char format[20];    /* of the cells and the total */
    DTTableValue sum;   /* the total, of the column's type */
    int32_t width;      /* in characters: 2 more than the longest of title, cell texts and total */
} DTTableColumn;

/* A cell that was set. */
typedef struct DTTableCell {
    char text[100];     /* what is shown */
    int32_t text_len;   /* characters in text, at most 99 */
    DTTableValue value; /* unused in a text column */
} DTTableCell;

/* Returns an empty table, or null without memory. */
DTTable *DTTable_New(void);

/* Frees the table with everything in it. */
void DTTable_Release(DTTable *table);

/* Sets the caption, cut after 99 characters; null and the empty text mean no caption. */
void DTTable_SetCaption(DTTable *table, const char *caption);

/* Defines the column at position col, or redefines it: its cells stay and are read with the new
 * type from then on (a text that was never made is empty, a value that was never set 0), and
 * sum_text stays until the next sum.
 *
 * title   cut after 99 characters; null: empty.
 * type    DTTABLE_DOUBLE to DTTABLE_TEXT.
 * format  at most 19 characters, in the manner of printf, for the cells and the total.
 * align   'L' 'l' left, 'R' 'r' right, anything else centred.
 *
 * A format holds at most one conversion that takes the value, and "%%" as often as wanted; without
 * a conversion every cell shows the same text. Width and precision have at most three digits. The
 * conversion must suit the type:
 *   DTTABLE_DOUBLE, _FLOAT  a A e E f F g G, also with l
 *   DTTABLE_INT32           d i o u x X, with a length modifier of 32 bits or less (hh, h, none;
 *                           l, z and t where they mean 32 bits), and c
 *   DTTABLE_INT64           d i o u x X, with one of 64 bits (ll, j; l, z, t where they mean that)
 *   DTTABLE_TEXT            s and p; an integer conversion up to the size of an address, and c:
 *                           they show the address that is passed itself
 * Anything else is refused and changes nothing: another type, a null or longer format, a second
 * conversion, '*', '$', %n, %m, wide characters, L.
 */
void DTTable_SetTitle(DTTable *table, int32_t col, const char *title, int32_t type,
                      const char *format, char align);

/* Sets a cell, or overwrites it; nothing happens when the column is not defined. Row positions in
 * between come into being empty.
 *
 * value  numbers: its address; null stores nothing. Text: the argument of the column's format, used
 *        at once and cut after 99 characters; null for %s gives "(null)". May lie in the table.
 */
void DTTable_Set(DTTable *table, int32_t row, int32_t col, const void *value);

/* Returns the address of a cell's value or, in a text column, of its text; null when there is no
 * such column, row or cell. Valid until the cell is removed. A 64-bit value is only as aligned as
 * the platform's memory (VRK_Malloc) makes it: copy it out where that may be 4 bytes.
 */
void *DTTable_Get(const DTTable *table, int32_t row, int32_t col);

/* The number of column and of row positions, empty ones included. */
int32_t DTTable_GetColNum(const DTTable *table);
int32_t DTTable_GetRowNum(const DTTable *table);

/* Frees every row's cells; the row positions stay, empty. */
void DTTable_ClearLines(DTTable *table);

/* Frees all rows and columns; the caption stays. */
void DTTable_Clear(DTTable *table);

/* Brings totals, the texts of numeric cells and widths up to date. The renderers call it. */
void DTTable_Sum(DTTable *table);

/* Renders the table on the console, a line a console call (lines above 399 characters in pieces).
 * Returns 0. Nothing is shown without memory for a print object, or when a column position below
 * the highest is not defined.
 *
 * With the caption Stats, a right-aligned number column id and a left-aligned text column name:
 *
 *   **********
 *     Stats
 *   **********
 *    id  name
 *    --  ----
 *      7ab
 *     12xyz
 *   ----------
 *   total count = 2
 *   ----------
 *
 * Titles are centred; an odd blank goes behind a centred text. A row position that was never set is
 * an empty line; it counts. A caption wider than the table begins at the line's start.
 */
int32_t DTTable_Show(DTTable *table);

/* Renders into size bytes at buffer, without the three lines of the footer, and returns the number
 * of characters written; there is no terminator behind them. A table that is larger is cut after
 * size - 1 characters. The first byte is cleared when nothing is rendered for a missing column.
 * Returns 0 with the buffer untouched without memory for a print object and for a size below 2.
 * A null buffer or a size of 0: DTTable_Show.
 */
int32_t DTTable_ShowToBuffer(DTTable *table, char *buffer, int32_t size);

/* Appends what DTTable_Show prints to a byte buffer, growing it once. Nothing is appended when it
 * cannot grow that far, when its elements are not single bytes, or for a missing column. An address
 * of 100 or less, null included: DTTable_Show.
 */
void DTTable_ShowToBuf(DTTable *table, DTBuf *buf);

#ifdef __cplusplus
}
#endif

#endif
