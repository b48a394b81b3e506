// The texts of cells and totals, made with a column's format.
//
// The format is the caller's text: what it may ask for is decided once, when the column is defined.
#ifndef DT_TABLE_FORMAT_H
#define DT_TABLE_FORMAT_H

#include "table/DTTable.h"

namespace dt {

// Whether a column of that type may have that format.
bool format_suits(const char *format, int32_t type);

// Makes the text of a number; returns the length of what the field holds.
int32_t format_number(char (&text)[100], const char *format, int32_t type,
                      const DTTableValue &value);

// Makes the text of a text column's argument, which may be the field itself.
int32_t format_text(char (&text)[100], const char *format, const void *argument);

} // namespace dt

#endif
