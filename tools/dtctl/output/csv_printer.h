#pragma once

#include "dtctl/output/printer.h"

namespace dtctl {

class CsvPrinter : public Printer {
public:
    using Printer::Printer;
    void on_opening(const dt::decode::Opening &opening) override;
    void on_selftest(const dt::decode::SelfTest &test) override;
    void on_value(const dt::decode::Value &value) override;

private:
    std::string begin() const;

    bool headed_ = false;
};

} // namespace dtctl
