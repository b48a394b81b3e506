// In the place of capture_pcap.cpp where libpcap is not there.
#include "capture/capture.h"
#include "host/failure.h"

namespace dtctl {

void read_capture(const std::string &, const std::function<void(const Frame &)> &) {
    throw Failure(Exit::failed, "this program was built without libpcap, which reads captures");
}

} // namespace dtctl
