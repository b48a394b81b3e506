// Show operations take the address of a byte buffer; an address this low means the console.
#ifndef DT_BASE_TARGET_H
#define DT_BASE_TARGET_H

#include <stdint.h>

namespace dt {

inline bool is_console(const void *target) { return reinterpret_cast<uintptr_t>(target) <= 100; }

} // namespace dt

#endif
