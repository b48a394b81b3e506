/* Fault registry and fault log file. */
#ifndef DT_FAULT_H
#define DT_FAULT_H

#include "fault/DTFault.h"

#endif
