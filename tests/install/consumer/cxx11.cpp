// Uses libdt as it is: its own platform functions, its globals.
#include <dt/fault.h>
#include <dt/records.h>

#include <cstring>
#include <string>

int main() {
    uint8_t record[32];
    const int32_t size = DTBuffer_PackN(record, sizeof record, "IH4s", 4711, 1850, "bar");
    uint32_t serial = 0;
    uint16_t pressure = 0;
    std::string unit(5, ' ');
    if (DTBuffer_UNPackN("IH4s", record, static_cast<uint32_t>(size), &serial, &pressure,
                         &unit[0]) != 3)
        return 1;
    if (serial != 4711 || pressure != 1850 || std::strcmp(unit.c_str(), "bar") != 0) return 2;

    DTFault *fault = DTFault_Regist("pump", nullptr);
    return DTList_Get(g_DTFault_List, 0) == reinterpret_cast<uintptr_t>(fault) ? 0 : 3;
}
