#include "capture/capture.h"
#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <memory>

namespace dtctl {
namespace {

[[noreturn]] void refuse(const std::string &path, const char *reason) {
    throw Failure(Exit::broken, fmt::format("{}: {}", escape(path), escape(reason)));
}

int64_t time_of(const timeval &when) { return int64_t{when.tv_sec} * 1'000'000 + when.tv_usec; }

} // namespace

void read_capture(const std::string &path, const std::function<void(const Frame &)> &take) {
    Fd file = open_input(path);
    std::FILE *stream = ::fdopen(file.get(), "rb");
    if (!stream) report_unreadable(path);
    file.release();
    char reason[PCAP_ERRBUF_SIZE] = "";
    const std::unique_ptr<pcap_t, void (*)(pcap_t *)> capture(::pcap_fopen_offline(stream, reason),
                                                              ::pcap_close);
    if (!capture) {
        std::fclose(stream);
        refuse(path, reason);
    }
    const int link = ::pcap_datalink(capture.get());
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    int result;
    while ((result = ::pcap_next_ex(capture.get(), &header, &bytes)) == 1)
        take({link, time_of(header->ts), {bytes, header->caplen}});
    if (result == PCAP_ERROR) refuse(path, ::pcap_geterr(capture.get()));
}

} // namespace dtctl
