#include "dtctl/config/server.h"

#include "dtctl/config/exchange.h"
#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <utility>

namespace dtctl {
namespace {

// The signals become readable, so that none falls between two system calls.
Fd take_over_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, signal);
    const int error = ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    Fd signals(error == 0 ? ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK) : -1);
    if (!signals) throw Failure(Exit::failed, "cannot take signals");
    return signals;
}

std::string count_text(const Settings &settings) {
    return fmt::format("{} setting{}", settings.size(), settings.size() == 1 ? "" : "s");
}

std::string endpoint_text(const sockaddr_in &address) {
    return fmt::format("{}:{}", address_text(address), ntohs(address.sin_port));
}

} // namespace

ConfigServer::ConfigServer(ConfigOptions options, std::FILE *log)
    : options_(std::move(options)), log_(log), settings_(load_settings(options_.path)),
      signals_(take_over_signals()), socket_(bind_udp(options_.address, options_.port)) {}

void ConfigServer::run() {
    log_.say(fmt::format("listening on {} port {}, {}", escape(options_.address), port(),
                         count_text(settings_)));
    while (pass()) {
    }
    log_.catch_up(Clock::time_point::max());
    log_.say("stopped");
}

// Takes one signal and one request at most, so that neither keeps the other waiting; false to end.
// Signals are looked for in any case: one that was sent before a request counts before it.
bool ConfigServer::pass() {
    pollfd entries[] = {{signals_.get(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
    if (::poll(entries, 2, log_.milliseconds_left()) < 0) return true; // interrupted
    log_.catch_up(Clock::now());
    if (!take_signal()) return false;
    if (entries[1].revents != 0) take_request();
    return true;
}

bool ConfigServer::take_signal() {
    signalfd_siginfo info{};
    if (::read(signals_.get(), &info, sizeof(info)) != sizeof(info)) return true;
    if (info.ssi_signo != SIGHUP) return false;
    reload();
    return true;
}

void ConfigServer::reload() {
    try {
        settings_ = load_settings(options_.path);
        log_.say("read again, " + count_text(settings_));
    } catch (const std::exception &failure) { // no memory is no reason to end either
        log_.say(fmt::format("the settings stay as they were: {}", failure.what()));
    }
}

void ConfigServer::take_request() {
    std::array<char, max_config_request> buffer;
    sockaddr_in peer{};
    socklen_t peer_size = sizeof(peer);
    // With MSG_TRUNC the result is the datagram's size, also when less fits.
    const ssize_t size = ::recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                    reinterpret_cast<sockaddr *>(&peer), &peer_size);
    if (size < 0) {
        if (would_block(errno) || errno == EINTR) return;
        throw Failure(Exit::failed, fmt::format("cannot receive: {}", std::strerror(errno)));
    }
    const size_t count = static_cast<size_t>(size);
    ConfigAnswer answer = answer_config({buffer.data(), std::min(count, buffer.size())}, count,
                                        settings_, options_.echo_default);
    if (answer.datagram) send_answer(*answer.datagram, peer, answer.log);
    log_.add(fmt::format("{}: {}", endpoint_text(peer), answer.log), Clock::now());
}

void ConfigServer::send_answer(const std::string &datagram, const sockaddr_in &peer,
                               std::string &log) {
    if (::sendto(socket_.get(), datagram.data(), datagram.size(), 0,
                 reinterpret_cast<const sockaddr *>(&peer), sizeof(peer)) < 0)
        log += fmt::format(", but it was not sent: {}", std::strerror(errno));
}

} // namespace dtctl
