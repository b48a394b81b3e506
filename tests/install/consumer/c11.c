/* Replaces a platform function and a global of libdt, and sees libdt use them. */
#include <dt/dt.h>

static int printed;

CollectParam g_collect_param;

void VRK_RawPrint(const char *format, ...) { printed = *format != '\0'; }

int main(void) {
    DTPrint_Puts("hello", 0);
    if (!printed) return 1;
    CollectItem *pump = Collect_New("pump", NULL, NULL);
    return g_collect_param.count == 1 && g_collect_param.items[0] == pump ? 0 : 2;
}
