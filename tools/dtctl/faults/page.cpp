#include "dtctl/faults/page.h"

#include "dtctl/faults/json.h"
#include "dtctl/faults/page_text.h"

#include <fmt/format.h>

namespace dtctl {
namespace {

// JSON that cannot end the element it stands in, nor open a comment there.
std::string in_script(const Object &object) {
    std::string text;
    for (const char c : text_of(object)) {
        if (c == '<') {
            text += "\\u003c";
        } else {
            text += c;
        }
    }
    return text;
}

std::string file_name(const std::string &path) { return path.substr(path.rfind('/') + 1); }

} // namespace

FaultPage::FaultPage(std::FILE *out) : FaultPrinter(out) { put(fault_page_head); }

void FaultPage::put_entry(const Object &entry) {
    if (!first_) put(",\n");
    first_ = false;
    put(in_script(entry));
}

void FaultPage::on_line(const dt::decode::LogLine &line) { put_entry(object_of(line)); }

void FaultPage::on_fault_value(const dt::decode::FaultValue &value) { put_entry(object_of(value)); }

void FaultPage::end(const std::string &path, const dt::decode::Damage *damage) {
    Object about{{"file", path == "-" ? "" : escape(file_name(path))}, {"damage", nullptr}};
    if (damage) about["damage"] = fmt::format("byte {}: {}", damage->offset, damage->reason);
    put("],\n" + in_script(about).substr(1)); // without the brace that the entries follow
    put(fault_page_tail);
}

} // namespace dtctl
