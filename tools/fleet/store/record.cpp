#include "fleet/store/record.h"

#include "host/text.h"

namespace dtfleet {

const char *text_of(Outcome outcome) {
    constexpr const char *texts[outcomes] = {"whole",  "unanswered", "refused",
                                             "silent", "too long",   "too large",
                                             "reset",  "malformed",  "stopped"};
    return texts[static_cast<size_t>(outcome)];
}

std::string id_text(const RunId &id) {
    return dtctl::hex({reinterpret_cast<const char *>(id.data()), id.size()});
}

} // namespace dtfleet
