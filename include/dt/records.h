/* Packed records, record store and logger. */
#ifndef DT_RECORDS_H
#define DT_RECORDS_H

#include "records/DTBuffer.h"
#include "records/DTInfo.h"
#include "records/DTLogger.h"

#endif
