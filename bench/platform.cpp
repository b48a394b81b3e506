// What the library finds in place of a device's console and root directory.
#include "bench/console.h"
#include "bench/inputs.h"

#include <dt/foundation.h>
#include <fstream>
#include <sstream>
#include <stdarg.h>
#include <stdio.h>

std::string *bench::console_copy;

const char *bench::fault_log_path() { return "/dev/shm/dt-bench-fcm.log"; }

std::string bench::file_content(const char *path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

extern "C" {

void VRK_RawPrint(const char *format, ...) {
    if (!bench::console_copy) return;
    va_list args;
    va_start(args, format); // "%s" and a text, as the library calls it
    *bench::console_copy += va_arg(args, const char *);
    va_end(args);
}

FILE *fopen(const char *path, const char *mode) {
    const bool fault_log = strcmp(path, "/fcm.log") == 0;
    return fopen64(fault_log ? bench::fault_log_path() : path, mode);
}
}
