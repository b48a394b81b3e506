#pragma once

#include "dtctl/output/printer.h"

#include <nlohmann/json_fwd.hpp>

namespace dtctl {

class JsonPrinter : public Printer {
public:
    using Printer::Printer;

private:
    void put_selftest(const dt::decode::SelfTest &test) override;
    void put_value(const dt::decode::Value &value) override;
    nlohmann::ordered_json begin() const;
};

} // namespace dtctl
