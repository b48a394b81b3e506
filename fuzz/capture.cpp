// Captures, from a file to what is printed of them.
#include "printed.h"

#include "dtctl/collect/replay.h"

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int file = memfd_create("capture", 0);
    assert(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    check_all_forms([](const auto &options, FILE *out) {
        dtctl::replay("/proc/self/fd/" + std::to_string(file), 2000,
                      *dtctl::make_printer(options, out));
    });
    return 0;
}
