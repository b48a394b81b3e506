/* All of libdt. */
#ifndef DT_DT_H
#define DT_DT_H

#include "collect.h"
#include "containers.h"
#include "fault.h"
#include "foundation.h"
#include "records.h"

#endif
