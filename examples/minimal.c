/* Logs two lines, packs a record, and reads it back twice: into variables, and as a readable dump.
 */
#include <dt/dt.h>

#include <stdio.h>

int main(void) {
    DTLogger *logger = DTLogger_New(255);
    DTLogger_Write(logger, 1, "pump started");
    DTLogger_Write(logger, 2, "pressure low");
    DTLogger_ShowInfo(logger, 1);
    DTLogger_Release(logger);

    uint8_t record[32];
    const int32_t size = DTBuffer_PackN(record, sizeof record, "IH8s", 4711, 1850, "bar\0\0\0\0");

    uint32_t serial;
    uint16_t pressure;
    char unit[9];
    if (DTBuffer_UNPackN("IH8s", record, (uint32_t)size, &serial, &pressure, unit) != 3) return 1;
    printf("%u: %u m%s\n", serial, pressure, unit);

    DTBuffer_UNPack("*ih8s", record);
    return 0;
}
