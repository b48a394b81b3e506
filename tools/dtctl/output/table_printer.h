#pragma once

#include "dtctl/output/printer.h"

namespace dtctl {

class TablePrinter : public Printer {
public:
    using Printer::Printer;

private:
    void put_heading() override;
    void put_selftest(const dt::decode::SelfTest &test) override;
    void put_value(const dt::decode::Value &value) override;

    bool again_ = false;
};

} // namespace dtctl
