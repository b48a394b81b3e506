/* All memory of libdt is that of the platform layer in examples/platform.c, in a library of its
 * own. */
#include <dt/dt.h>

#include "platform.h"

int main(void) {
    void *block = DTMem_Malloc(1, 100);
    if (platform_memory_used() != 104) return 1;
    DTMem_Free(1, block);
    return platform_memory_used() == 0 ? 0 : 2;
}
