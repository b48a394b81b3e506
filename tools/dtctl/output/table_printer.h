#pragma once

#include "dtctl/output/printer.h"

namespace dtctl {

class TablePrinter : public Printer {
public:
    using Printer::Printer;
    void on_opening(const dt::decode::Opening &opening) override;
    void on_selftest(const dt::decode::SelfTest &test) override;
    void on_value(const dt::decode::Value &value) override;

private:
    bool again_ = false;
};

} // namespace dtctl
