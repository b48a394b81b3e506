// What both runs do: open the connection, send, and say in the collection log how they get on.
#ifndef DT_COLLECT_RUN_H
#define DT_COLLECT_RUN_H

#include <stdint.h>

struct CollectItem;

namespace dt {

// A collector's name, which outlives a callback that releases its own collector.
struct RunName {
    explicit RunName(const CollectItem *item);
    char text[20];
};

// Connects and sends the opening message, whose own success is not asked for. False, and logged,
// without a connection.
bool run_open(const char *address, uint32_t port, int32_t sequence, uint8_t identity0,
              uint8_t identity1);

// Sends the message as it stands; false, logged, and the end of all values when that fails.
bool run_flush();

// Logs a step of a collector with the time.
void run_log(const RunName &name, const char *step);

} // namespace dt

#endif
