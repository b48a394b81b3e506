/* Text tables. */
#ifndef DT_TABLE_H
#define DT_TABLE_H

#include "table/DTTable.h"

#endif
