#include "input.h"

#include <cstdarg>
#include <dt/foundation.h>

std::string console;

void VRK_RawPrint(const char *format, ...) {
    va_list args;
    va_start(args, format);
    console += va_arg(args, const char *);
    va_end(args);
}
