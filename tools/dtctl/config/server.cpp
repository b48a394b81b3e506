#include "dtctl/config/server.h"

#include "dtctl/config/exchange.h"
#include "host/failure.h"
#include "host/text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
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

std::string time_text() {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now - seconds);
    return fmt::format("{:%F %T}.{:03}",
                       fmt::localtime(std::chrono::system_clock::to_time_t(seconds)), rest.count());
}

std::string endpoint_text(const sockaddr_in &address) {
    return fmt::format("{}:{}", address_text(address), ntohs(address.sin_port));
}

} // namespace

ConfigServer::ConfigServer(ConfigOptions options, Output &log)
    : options_(std::move(options)), log_(log), settings_(load_settings(options_.path)),
      signals_(take_over_signals()), socket_(bind_udp(options_.address, options_.port)) {}

void ConfigServer::run() {
    note(fmt::format("listening on {} port {}, {} settings", escape(options_.address), port(),
                     settings_.size()));
    while (pass()) {
    }
    note("stopped");
}

// Takes one signal and one request at most, so that neither keeps the other waiting; false to end.
// Signals are looked for in any case: one that was sent before a request counts before it.
bool ConfigServer::pass() {
    pollfd entries[] = {{signals_.get(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
    if (::poll(entries, 2, -1) < 0) return true; // interrupted
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
        note(fmt::format("read again, {} settings", settings_.size()));
    } catch (const Failure &failure) {
        note(fmt::format("the settings stay as they were: {}", failure.what()));
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
    note(fmt::format("{}: {}", endpoint_text(peer), answer.log));
}

void ConfigServer::send_answer(const std::string &datagram, const sockaddr_in &peer,
                               std::string &log) {
    if (::sendto(socket_.get(), datagram.data(), datagram.size(), 0,
                 reinterpret_cast<const sockaddr *>(&peer), sizeof(peer)) < 0)
        log += fmt::format(", but it was not sent: {}", std::strerror(errno));
}

void ConfigServer::note(const std::string &text) {
    log_.put(fmt::format("{} {}\n", time_text(), text));
    log_.flush();
}

} // namespace dtctl
