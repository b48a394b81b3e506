#include "dtctl/faults/page.h"

#include "dtctl/faults/json.h"
#include "dtctl/faults/page_text.h"
#include "host/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace dtctl {
namespace {

// A text without control characters, as it stands in the page: without a '<' it can neither end the
// element it stands in, nor open a comment there.
std::string in_script(std::string text) {
    std::replace(text.begin(), text.end(), '<', '\x01');
    return text;
}

// Escaped, a text holds no control character, so a tab can end it.
std::string field(std::string_view bytes) { return in_script(escape(bytes)); }

std::string file_name(const std::string &path) { return path.substr(path.rfind('/') + 1); }

} // namespace

FaultPage::FaultPage(std::FILE *out) : FaultPrinter(out) { put(fault_page_head); }

void FaultPage::on_line(const dt::decode::LogLine &line) {
    put(fmt::format("{}\t{}\t{}", type_of(line), line.time.value_or(""), field(line.fault)));
    if (line.text) put('\t' + field(*line.text));
    put("\n");
}

void FaultPage::on_fault_value(const dt::decode::FaultValue &value) {
    put(fmt::format("{}\t{}\t{}\t{}\n", type_of(value), value.id, field(value.fault),
                    in_script(text_of(value))));
}

void FaultPage::end(const std::string &path, const dt::decode::Damage *damage) {
    if (path != "-") put(fmt::format("file\t{}\n", field(file_name(path))));
    if (damage) put(fmt::format("damage\tbyte {}: {}\n", damage->offset, damage->reason));
    put(fault_page_tail);
}

} // namespace dtctl
