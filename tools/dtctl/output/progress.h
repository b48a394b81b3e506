// What has arrived, counted in one line on standard error.
#pragma once

#include "decode/decoder.h"
#include "host/progress.h"

#include <string>

namespace dtctl {

class Progress {
public:
    // shown: whether there is a line at all; meant for a terminal.
    explicit Progress(bool shown)
        : line_("dtctl", shown, [this] {
              return std::to_string(totals_.messages) + " messages, " +
                     std::to_string(totals_.values) + " values, " + std::to_string(totals_.bytes) +
                     " bytes";
          }) {}

    void update(const dt::decode::Totals &totals) {
        totals_ = totals;
        line_.update();
    }
    void clear() { line_.clear(); }
    void note(const std::string &text) { line_.note(text); }

private:
    dt::decode::Totals totals_;
    ProgressLine line_; // tells of the totals up to its end
};

} // namespace dtctl
