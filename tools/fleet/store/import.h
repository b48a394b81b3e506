// What was brought here in files: a device's faults, and runs that others have captured. What is
// there already is not added again. All of it may be done beside a running service.
#pragma once

#include "fleet/store/store.h"

#include <map>
#include <string>
#include <string_view>

namespace dtfleet {

// Adds a fault log file and says how many of its lines and values are new. Throws dtctl::Failure
// for a damaged one, of which nothing is added, and Unavailable.
// written: when the device wrote it.
size_t import_faults(Store &store, const std::string &device, std::string_view file,
                     Microseconds written);

// The device behind an address in a capture.
struct Sender {
    std::string device;
    int64_t id = 0; // in this database: it stays when the device gets another name
    uint32_t command = 0;
    bool keeps_all = false;
};

struct CapturedRuns {
    size_t whole = 0;
    size_t broken = 0;
    std::map<std::string, size_t> strangers; // runs by their addresses, which are not imported
    std::string trouble;                     // where the file stops making sense; empty: nowhere
};

// Adds the runs in a capture ("-": standard input). Throws dtctl::Failure when it cannot be read,
// and Unavailable, after some have been stored.
// senders: by their addresses.
CapturedRuns import_capture(Store &store, const std::string &path,
                            const std::map<std::string, Sender> &senders, const Limits &limits);

} // namespace dtfleet
