#include "support/formatter.h"

#include <dt/foundation.h>

#include <stdarg.h>
#include <stdio.h>

CutLength reported_of_cut_text = CutLength::Whole;

extern "C" int TMB_snprintf(char *buffer, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(buffer, size, format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) < size) return length;
    if (reported_of_cut_text == CutLength::Whole) return length;
    return reported_of_cut_text == CutLength::Kept ? static_cast<int>(size) - 1 : -1;
}
