/* The program's times are libdt's: the same number of bits on both sides. */
#include <dt/dt.h>

#include <string.h>

int main(void) {
    char year[16];
    const time_t ahead = DTTime_GetTime(60) - time(NULL);
    if (ahead < 60 || ahead > 120) return 1;
    return strcmp(DTTime_Format(year, "YYYY", (time_t)962409600), "2000") == 0 ? 0 : 2;
}
