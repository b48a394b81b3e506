/* Replaces a platform function and a global of libdt, and sees libdt use them. */
#include <dt/dt.h>

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static char console[2000];

CollectParam g_collect_param;

void VRK_RawPrint(const char *format, ...) {
    const size_t length = strlen(console);
    va_list args;
    va_start(args, format);
    vsnprintf(console + length, sizeof console - length, format, args);
    va_end(args);
}

int main(void) {
    DTLogger *log = DTLogger_New(255);
    DTLogger_Write(log, 1, "pump started\n");
    DTLogger_ShowInfo(log, 1);
    DTLogger_Release(log);
    if (!strstr(console, "pump started")) return 1;

    CollectItem *pump = Collect_New("pump", NULL, NULL);
    return g_collect_param.count == 1 && g_collect_param.items[0] == pump ? 0 : 2;
}
