/* Byte buffer and list. */
#ifndef DT_CONTAINERS_H
#define DT_CONTAINERS_H

#include "containers/DTBuf.h"
#include "containers/DTList.h"

#endif
