// A fault log file as one page: its data, and what shows them in a browser. The page is made of the
// files in page/; log.js says how the data stand in it.
#pragma once

#include "dtctl/faults/printer.h"

#include <string>

namespace dtctl {

class FaultPage : public FaultPrinter {
public:
    explicit FaultPage(std::FILE *out);

    void on_line(const dt::decode::LogLine &line) override;
    void on_fault_value(const dt::decode::FaultValue &value) override;
    void end(const std::string &path, const dt::decode::Damage *damage) override;
};

} // namespace dtctl
