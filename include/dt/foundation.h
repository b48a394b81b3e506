/* Memory, console output, text and time. */
#ifndef DT_FOUNDATION_H
#define DT_FOUNDATION_H

#include "foundation/DTMem.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "foundation/DTTime.h"

#endif
