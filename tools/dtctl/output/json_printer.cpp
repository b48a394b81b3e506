#include "dtctl/output/json_printer.h"

#include "host/json_text.h"

namespace dtctl {
namespace {

using dt::decode::Kind;
using dt::decode::Value;

void add_collector(Object &object, const std::optional<std::string> &name) {
    if (!name) {
        object["collector"] = nullptr;
    } else {
        add_text(object, "collector", "collector_hex", *name);
    }
}

void add_value(Object &object, const Value &value) {
    if (value.kind == Kind::int32) {
        object["value"] = value.number;
    } else if (value.kind == Kind::int64) {
        object["value"] = std::to_string(value.number);
    } else if (value.kind == Kind::string) {
        add_text(object, "text", "hex", value.bytes);
    } else {
        object["hex"] = hex(value.bytes);
    }
}

} // namespace

Object JsonPrinter::begin() const {
    Object object;
    if (!time().empty()) object["time"] = time();
    object["device"] = device();
    object["identity"] = identity();
    return object;
}

void JsonPrinter::put_selftest(const dt::decode::SelfTest &test) {
    Object object = begin();
    add_collector(object, test.name);
    object["type"] = selftest_type;
    put(text_of(object) + '\n');
}

void JsonPrinter::put_value(const Value &value) {
    Object object = begin();
    add_collector(object, value.collector);
    object["index"] = value.index;
    object["section"] = value.section;
    object["key"] = value.key;
    object["type"] = type_name(value.kind);
    add_value(object, value);
    put(text_of(object) + '\n');
}

} // namespace dtctl
