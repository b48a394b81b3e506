#include "dtctl/faults/file.h"

#include "host/failure.h"
#include "host/file.h"
#include "host/text.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>

namespace dtctl {

void show_fault_log(const std::string &path, FaultPrinter &printer) {
    const Fd file = open_input(path);
    dt::decode::FaultLogDecoder decoder(printer);
    std::array<uint8_t, 16'384> buffer;
    std::string head;
    bool good = true;
    ssize_t count = 1;
    while (good && count > 0) {
        count = read_some(file, buffer);
        const int error = errno;
        for (ssize_t i = 0; i < count && head.size() < dt::decode::fault_log_head; ++i)
            head += static_cast<char>(buffer[static_cast<size_t>(i)]);
        good = count > 0 ? decoder.feed(std::span(buffer).first(static_cast<size_t>(count)))
                         : decoder.finish();
        printer.flush();
        errno = error;
        if (count < 0) report_unreadable(path);
    }
    printer.end(path, good ? nullptr : &*decoder.damage());
    printer.flush();
    if (good) return;
    throw Failure(
        Exit::broken,
        fmt::format("{}{}: byte {}: {}", escape(path),
                    dt::decode::may_be_fault_log(head) ? "" : " does not look like a fault log",
                    decoder.damage()->offset, decoder.damage()->reason));
}

} // namespace dtctl
