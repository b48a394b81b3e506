// Uses libdt as it is: its own platform functions, its globals.
#include <dt/fault.h>
#include <dt/records.h>

int main() {
    char record[8];
    if (DTBuffer_PackN(record, sizeof record, "IH", 4711, 1850) != 6) return 1;
    DTFault *fault = DTFault_Regist("pump", nullptr);
    return DTList_Get(g_DTFault_List, 0) == reinterpret_cast<uintptr_t>(fault) ? 0 : 2;
}
