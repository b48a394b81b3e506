#pragma once

#include "dtctl/output/printer.h"

namespace dtctl {

class CsvPrinter : public Printer {
public:
    using Printer::Printer;

private:
    void put_heading() override;
    void put_selftest(const dt::decode::SelfTest &test) override;
    void put_value(const dt::decode::Value &value) override;
    std::string begin(const std::string &collector) const;

    bool headed_ = false;
};

} // namespace dtctl
