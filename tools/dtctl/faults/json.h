// A fault log file's lines and values as JSON objects.
#pragma once

#include "decode/fault_log.h"
#include "host/json_text.h"

namespace dtctl {

// "init" or "run".
const char *type_of(const dt::decode::LogLine &line);

// "register", "counter64" and so on.
const char *type_of(const dt::decode::FaultValue &value);

Object object_of(const dt::decode::LogLine &line);
Object object_of(const dt::decode::FaultValue &value);

} // namespace dtctl
