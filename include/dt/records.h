/* Packed records, record store, logger and function log. */
#ifndef DT_RECORDS_H
#define DT_RECORDS_H

#include "records/DTBuffer.h"
#include "records/DTFuncLog.h"
#include "records/DTInfo.h"
#include "records/DTLogger.h"

#endif
