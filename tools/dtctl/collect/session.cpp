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
#include <random>
#include <utility>
#include <vector>

namespace dtctl {
namespace {

namespace wire = dt::decode::wire;

// Not 0, by which the device would count on its own.
uint32_t any_number() {
    std::random_device random;
    return std::uniform_int_distribution<uint32_t>(1, INT32_MAX)(random);
}

} // namespace

Session::Session(Request request, Printer &printer, Progress &progress)
    : request_(std::move(request)), printer_(printer), progress_(progress),
      decoder_(printer, request_.max_value) {}

void Session::run() {
    if (request_.deadline.count() != 0) deadline_ = Clock::now() + request_.deadline;
    if (request_.any_address && request_.sequence == 0) request_.sequence = any_number();
    device_ = resolve(request_.device, request_.device_port);
    Caller device;
    {
        // The device connects as soon as it has the command: the port is open before it goes out.
        // Copies of the command that are still under way must find nobody to talk to.
        Callers callers(request_.listen, {device_, request_.any_address, request_.sequence},
                        progress_);
        device = wait_for_device(callers, connect_udp(device_));
    }
    device_ = device.address;
    printer_.start(address_text(device_), std::time(nullptr));
    receive(device.connection);
}

// Sends the command, and again at even steps of the time-out, until the device connects.
Caller Session::wait_for_device(Callers &callers, const Fd &command) {
    const auto begin = Clock::now();
    const auto step = request_.timeout / (request_.resend + 1);
    for (unsigned sent = 0; sent <= request_.resend; ++sent) {
        send_command(command, callers.port());
        const auto until =
            sent == request_.resend ? begin + request_.timeout : begin + step * (sent + 1);
        Caller device = wait_for_caller(callers, command, std::min(until, deadline_));
        if (device.connection) return device;
        if (Clock::now() >= deadline_) report_late("the run is not over", request_.deadline);
    }
    report_silence();
}

void Session::send_command(const Fd &command, uint16_t port) {
    const auto datagram =
        wire::packed<4>({wire::command_size, request_.command, request_.sequence, port});
    if (::send(command.get(), datagram.data(), datagram.size(), 0) >= 0) return;
    if (would_block(errno)) return; // as good as lost on the way
    throw Failure(Exit::unreachable,
                  fmt::format("cannot send to {} port {}: {}", address_text(device_),
                              request_.device_port, std::strerror(errno)));
}

Caller Session::wait_for_caller(Callers &callers, const Fd &command, Clock::time_point until) {
    do {
        std::vector<pollfd> entries = callers.entries();
        entries.push_back({command.get(), POLLIN, 0});
        if (::poll(entries.data(), entries.size(), milliseconds_until(until)) < 0) continue;
        Caller device = callers.choose(std::span(entries).first(entries.size() - 1));
        if (device.connection) return device;
        if (entries.back().revents != 0) check_refusal(command);
    } while (Clock::now() < until);
    return {};
}

// The command socket gets readable when the network answers that nobody is there.
void Session::check_refusal(const Fd &command) {
    char ignored;
    if (::recv(command.get(), &ignored, 1, 0) >= 0 || would_block(errno)) return;
    throw Failure(Exit::unreachable,
                  fmt::format("{} does not answer on UDP port {}: {}", address_text(device_),
                              request_.device_port, std::strerror(errno)));
}

void Session::receive(const Fd &connection) {
    std::array<uint8_t, 16'384> buffer;
    due_ = Clock::now() + request_.timeout;
    for (;;) {
        wait(connection, POLLIN);
        const ssize_t count = ::recv(connection.get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (would_block(errno) || errno == EINTR)) continue;
        if (count <= 0) return end_of_stream(count < 0 ? errno : 0);
        take(connection, std::span(buffer).first(static_cast<size_t>(count)));
    }
}

void Session::wait(const Fd &connection, short events) const {
    const bool ready = wait_for(connection, events, std::min(due_, deadline_));
    if (Clock::now() >= deadline_) report_late("the run is not over", request_.deadline);
    if (!ready) report_silence();
}

// A message is acknowledged when what it completed has been printed.
void Session::take(const Fd &connection, std::span<const uint8_t> bytes) {
    const bool opened = decoder_.opening().has_value();
    const uint64_t messages = decoder_.totals().messages;
    progress_.clear();
    const bool good = decoder_.feed(bytes);
    printer_.flush();
    progress_.update(decoder_.totals());
    if (!good) report_break("");
    if (!opened && decoder_.opening()) check_number(decoder_.opening()->sequence);
    // Whole messages put off the time-out, single bytes do not.
    if (decoder_.totals().messages != messages) due_ = Clock::now() + request_.timeout;
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
            wait(connection, POLLOUT);
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
    const bool inside = decoder_.position().offset != 0;
    report_late(inside ? "the message is not whole" : "nothing from " + address_text(device_),
                request_.timeout);
}

// Names the place once the device has connected.
void Session::report_late(const std::string &cause, Clock::duration limit) const {
    const auto [message, offset] = decoder_.position();
    const std::string place =
        due_ == Clock::time_point() ? "" : fmt::format("message {}, byte {}: ", message, offset);
    throw Failure(Exit::timeout, fmt::format("{}{} after {} s", place, cause,
                                             std::chrono::duration<double>(limit).count()));
}

} // namespace dtctl
