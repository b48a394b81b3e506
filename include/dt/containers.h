/* Byte buffer, list, hash table, set and mixing function. */
#ifndef DT_CONTAINERS_H
#define DT_CONTAINERS_H

#include "containers/DTBuf.h"
#include "containers/DTHash.h"
#include "containers/DTList.h"
#include "containers/DTMD5.h"
#include "containers/DTSet.h"

#endif
