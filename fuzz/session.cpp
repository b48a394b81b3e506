// Collections from a device that sends anything, over real sockets: what is printed is what a
// decoder makes of the same bytes.
#include "printed.h"

#include "dtctl/collect/session.h"

#include <poll.h>
#include <sys/socket.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

const dtctl::Fd commands = dtctl::bind_udp("127.0.0.1", 0);

// Answers a command with the bytes, in parts, and returns what it could send.
std::string answer(Input input) {
    uint16_t command[32];
    dtctl::wait_for(commands, POLLIN, dtctl::Clock::now() + 60s);
    assert(recv(commands.get(), command, sizeof command, 0) == 16);
    const sockaddr_in server = dtctl::resolve("127.0.0.1", command[6]);
    const dtctl::Fd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&server), sizeof server) != 0)
        return "";
    std::string sent;
    while (input.left() != 0) {
        const std::string part =
            input.bytes(std::min<size_t>(1u + input.number(), input.left())).string();
        if (send(fd.get(), part.data(), part.size(), MSG_NOSIGNAL) < 0) break;
        sent += part;
    }
    shutdown(fd.get(), SHUT_WR);
    char acknowledgements[64];
    while (recv(fd.get(), acknowledgements, sizeof acknowledgements, 0) > 0) {
    }
    return sent;
}

bool decode(const std::string &stream, const dtctl::Request &request, dtctl::Printer &printer) {
    dt::decode::Decoder decoder(printer, request.max_value);
    printer.start(request.device, 0);
    decoder.feed({reinterpret_cast<const uint8_t *>(stream.data()), stream.size()});
    const bool whole = decoder.finish();
    whole ? printer.end() : printer.flush();
    return whole;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const uint8_t choice = input.number();
    dtctl::Request request;
    request.device = "127.0.0.1";
    request.device_port = dtctl::local_port(commands);
    request.resend = 0;
    request.max_value = 2000;
    request.any_address = choice % 8 == 0; // then whoever has another number is turned away
    request.timeout = request.any_address ? 20ms : 60s;
    const dtctl::OutputOptions options{choice % 2 ? dtctl::Format::json : dtctl::Format::csv};
    std::string sent;
    std::thread device([&] { sent = answer(input); });
    const Outcome got = outcome_of([&](FILE *out) {
        dtctl::Progress progress(false);
        dtctl::Session(request, *dtctl::make_printer(options, out), progress).run();
    });
    device.join();
    check_printed(options.format, got.output);
    check_text(got.error, "");
    if (request.any_address) return 0;
    bool whole = false;
    const Outcome expected = outcome_of(
        [&](FILE *out) { whole = decode(sent, request, *dtctl::make_printer(options, out)); });
    assert(got.output == expected.output);
    assert(got.code == (whole ? dtctl::Exit::success : dtctl::Exit::broken));
    return 0;
}
