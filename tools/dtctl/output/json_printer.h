#pragma once

#include "dtctl/output/printer.h"

#include <nlohmann/json_fwd.hpp>

namespace dtctl {

class JsonPrinter : public Printer {
public:
    using Printer::Printer;
    void on_selftest(const dt::decode::SelfTest &test) override;
    void on_value(const dt::decode::Value &value) override;

private:
    nlohmann::ordered_json begin() const;
};

} // namespace dtctl
