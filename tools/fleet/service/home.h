// What a collector leaves behind for its next life: a locked file.
#pragma once

#include "host/fd.h"

#include <string>

namespace dtfleet {

// A file has one number in one life of one kernel, however many copies of it there are, and the
// lock on it ends with the process: so whoever has the same key and comes later knows that the
// other is dead, and sends nothing any more.
class Home {
public:
    // Makes the file if it is not there. Where it cannot be locked, there is no key.
    explicit Home(const std::string &path);

    const std::string &key() const { return key_; }

private:
    dtctl::Fd file_;
    std::string key_;
};

} // namespace dtfleet
