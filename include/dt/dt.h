/* All of libdt. */
#ifndef DT_DT_H
#define DT_DT_H

#include "collect.h"
#include "containers.h"
#include "fault.h"
#include "foundation.h"
#include "net.h"
#include "records.h"
#include "table.h"
#include "timer.h"

#endif
