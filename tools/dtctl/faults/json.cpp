#include "dtctl/faults/json.h"

namespace dtctl {
namespace {

using dt::decode::FaultLog;
using dt::decode::FaultValue;
using dt::decode::LogLine;

Object begin(const char *type, const std::string &fault) {
    Object object{{"type", type}};
    add_text(object, "fault", "fault_hex", fault);
    return object;
}

} // namespace

const char *type_of(const LogLine &line) { return line.log == FaultLog::init ? "init" : "run"; }

const char *type_of(const FaultValue &value) {
    constexpr const char *names[] = {"register",  "register64",   "register-data", "counter",
                                     "counter64", "counter-data", "value"};
    return names[static_cast<size_t>(value.kind)];
}

Object object_of(const LogLine &line) {
    Object object = begin(type_of(line), line.fault);
    object["time"] = line.time ? Object(*line.time) : Object();
    if (line.text) {
        add_text(object, "text", "hex", *line.text);
    } else {
        object["text"] = nullptr;
    }
    return object;
}

Object object_of(const FaultValue &value) {
    Object object = begin(type_of(value), value.fault);
    object["id"] = value.id;
    const size_t size = number_size(value.kind);
    if (size == 0) {
        object["hex"] = hex(value.data);
    } else if (size == sizeof(uint32_t)) {
        object["value"] = value.number;
    } else {
        object["value"] = std::to_string(value.number);
    }
    return object;
}

} // namespace dtctl
