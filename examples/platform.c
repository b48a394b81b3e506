/* A platform layer: libdt's five functions for a device with little memory, whose debug console is
 * a slow serial line. Linked into the program, they take the place of libdt's defaults.
 */
#include "platform.h"

#include <dt/dt.h>

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

/* libdt hands out the address 4 bytes behind a raw block. A raw block that begins this far into one
 * of malloc's puts that address on malloc's own alignment; the room before it holds the size.
 */
enum { LEAD = _Alignof(max_align_t) - 4 };
_Static_assert(LEAD >= sizeof(uint32_t), "the size fits in front of the block");

static size_t used;
static int console = STDOUT_FILENO;

size_t platform_memory_used(void) { return used; }

/* The budget keeps diagnostics from starving the application: beyond it libdt does without. */
void *VRK_Malloc(size_t size) {
    if (size > PLATFORM_BUDGET - used) return NULL;
    char *start = (char *)malloc(size + LEAD);
    if (!start) return NULL;
    const uint32_t kept = (uint32_t)size;
    memcpy(start, &kept, sizeof kept);
    used += size;
    return start + LEAD;
}

void VRK_Free(void *address) {
    char *start = (char *)address - LEAD;
    uint32_t size;
    memcpy(&size, start, sizeof size);
    used -= size;
    free(start);
}

int platform_open_console(const char *path) {
    struct termios line;
    const int fd = open(path, O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return 0;
    if (tcgetattr(fd, &line) == 0) {
        line.c_oflag |= OPOST | ONLCR; /* a terminal wants a carriage return, libdt writes none */
        cfsetospeed(&line, B115200);
        tcsetattr(fd, TCSANOW, &line);
    }
    if (console != STDOUT_FILENO) close(console);
    console = fd;
    return 1;
}

void VRK_RawPrint(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vdprintf(console, format, args);
    va_end(args);
}

/* libdt asks for 1000 units now and then while it shows a long log. Here a unit is a microsecond,
 * and the line gets as long as it needs to send what it has.
 */
void VRK_Delay(uint32_t units) {
    const struct timespec pause = {(time_t)(units / 1000000), (long)(units % 1000000) * 1000};
    tcdrain(console);
    nanosleep(&pause, NULL);
}

int TMB_snprintf(char *buffer, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(buffer, size, format, args);
    va_end(args);
    return length;
}
