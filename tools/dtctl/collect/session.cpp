#include "dtctl/collect/session.h"

#include "host/failure.h"

#include <fmt/format.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

namespace dtctl {
namespace {

namespace wire = dt::decode::wire;

using CommandDatagram = std::array<uint8_t, wire::command_size>;

CommandDatagram command_datagram(const Request &request, uint16_t port) {
    const uint32_t words[] = {wire::command_size, request.command, request.sequence, port};
    CommandDatagram datagram{};
    for (size_t i = 0; i < datagram.size(); ++i) {
        datagram[i] = static_cast<uint8_t>(words[i / 4] >> (8 * (i % 4)));
    }
    return datagram;
}

} // namespace

Session::Session(Request request, Printer &printer, Progress &progress)
    : request_(std::move(request)), printer_(printer), progress_(progress), decoder_(printer) {}

void Session::run() {
    device_ = resolve(request_.device, request_.device_port);
    // The device connects as soon as it has the command: the port is open before it goes out.
    Fd listener = listen_on(request_.listen);
    Fd command = connect_udp(device_);
    const Fd connection = wait_for_device(listener, command);
    // Copies of the command that are still under way must find nobody to talk to.
    listener = Fd();
    command = Fd();
    printer_.start(address_text(device_), std::time(nullptr));
    receive(connection);
}

// Sends the command, and again at even steps of the time-out, until the device connects.
Fd Session::wait_for_device(const Fd &listener, const Fd &command) {
    const uint16_t port = local_port(listener);
    const auto begin = Clock::now();
    const auto step = request_.timeout / (request_.resend + 1);
    for (unsigned sent = 0; sent <= request_.resend; ++sent) {
        send_command(command, port);
        const auto until =
            sent == request_.resend ? begin + request_.timeout : begin + step * (sent + 1);
        do {
            pollfd entries[] = {{listener.get(), POLLIN, 0}, {command.get(), POLLIN, 0}};
            if (::poll(entries, 2, milliseconds_until(until)) < 0) continue;
            if (Fd connection = take_connection(listener)) return connection;
            if (entries[1].revents != 0) check_refusal(command);
        } while (Clock::now() < until);
    }
    report_silence();
}

void Session::send_command(const Fd &command, uint16_t port) {
    const CommandDatagram datagram = command_datagram(request_, port);
    if (::send(command.get(), datagram.data(), datagram.size(), 0) >= 0) return;
    if (would_block(errno)) return; // as good as lost on the way
    throw Failure(Exit::unreachable,
                  fmt::format("cannot send to {} port {}: {}", address_text(device_),
                              request_.device_port, std::strerror(errno)));
}

// The command socket gets readable when the network answers that nobody is there.
void Session::check_refusal(const Fd &command) {
    char ignored;
    if (::recv(command.get(), &ignored, 1, 0) >= 0 || would_block(errno)) return;
    throw Failure(Exit::unreachable,
                  fmt::format("{} does not answer on UDP port {}: {}", address_text(device_),
                              request_.device_port, std::strerror(errno)));
}

Fd Session::take_connection(const Fd &listener) {
    sockaddr_in peer{};
    Fd connection = accept_from(listener, peer);
    if (!connection) return connection;
    if (peer.sin_addr.s_addr == device_.sin_addr.s_addr) return connection;
    progress_.note(
        fmt::format("a connection from {} was turned away: not the device", address_text(peer)));
    return Fd();
}

void Session::receive(const Fd &connection) {
    std::array<uint8_t, 16'384> buffer;
    for (;;) {
        if (!wait_for(connection, POLLIN, Clock::now() + request_.timeout)) report_silence();
        const ssize_t count = ::recv(connection.get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (would_block(errno) || errno == EINTR)) continue;
        if (count <= 0) return end_of_stream(count < 0 ? errno : 0);
        take(connection, std::span(buffer).first(static_cast<size_t>(count)));
    }
}

// A message is acknowledged when what it completed has been printed.
void Session::take(const Fd &connection, std::span<const uint8_t> bytes) {
    const bool opened = decoder_.opening().has_value();
    progress_.clear();
    const bool good = decoder_.feed(bytes);
    printer_.flush();
    progress_.update(decoder_.totals());
    if (!good) report_break("");
    if (!opened && decoder_.opening()) check_number(decoder_.opening()->sequence);
    acknowledge(connection);
}

void Session::check_number(uint32_t sequence) {
    if (request_.sequence == 0 || sequence == request_.sequence) return;
    progress_.note(
        fmt::format("the run is numbered {} instead of {}: the answer to another command?",
                    sequence, request_.sequence));
}

// One byte a message: the device reads up to 16 at once and looks at none; a single byte cannot
// come in two parts. A device that has gone shows at the next receive.
void Session::acknowledge(const Fd &connection) {
    constexpr uint8_t acknowledgement = 0x06;
    while (acknowledged_ < decoder_.totals().messages) {
        const ssize_t sent = ::send(connection.get(), &acknowledgement, 1, MSG_NOSIGNAL);
        if (sent < 0 && would_block(errno)) {
            if (!wait_for(connection, POLLOUT, Clock::now() + request_.timeout)) report_silence();
            continue;
        }
        ++acknowledged_;
    }
}

// A reset behind a whole run (a device that stops waiting for the last acknowledgement) is no loss.
void Session::end_of_stream(int error) {
    if (decoder_.finish()) return printer_.end();
    report_break(error != 0 ? fmt::format(" ({})", std::strerror(error)) : "");
}

void Session::report_break(const std::string &cause) const {
    const dt::decode::Break &broken = *decoder_.broken();
    throw Failure(Exit::broken, fmt::format("message {}, byte {}: {}{}", broken.message,
                                            broken.offset, broken.reason, cause));
}

void Session::report_silence() const {
    const std::chrono::duration<double> seconds = request_.timeout;
    throw Failure(Exit::timeout,
                  fmt::format("nothing from {} for {} s, after {} messages", address_text(device_),
                              seconds.count(), decoder_.totals().messages));
}

} // namespace dtctl
