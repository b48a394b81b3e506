/* Data collection: client, registry and runs. */
#ifndef DT_COLLECT_H
#define DT_COLLECT_H

#include "collect/collect_api.h"
#include "collect/collect_client.h"
#include "collect/collect_getdata.h"
#include "collect/collect_selftest.h"

#endif
