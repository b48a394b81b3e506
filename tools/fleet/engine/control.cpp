#include "fleet/engine/control.h"

#include "host/failure.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

using nlohmann::json;

constexpr size_t longest_request = 65'536;
constexpr size_t most_clients = 16;

[[noreturn]] void fail(const std::string &path, const char *what) {
    throw dtctl::Failure(dtctl::Exit::unreachable, fmt::format("{}: {}", path, what));
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail(path, "this path is too long for a socket");
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

dtctl::Fd unix_socket(int flags) {
    return dtctl::Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

bool connects(const dtctl::Fd &socket, const sockaddr_un &address) {
    return ::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) ==
           0;
}

std::string line_of(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace

Control::Control(std::string path, Loop &loop, Handler handler)
    : path_(std::move(path)), loop_(loop), handler_(std::move(handler)),
      listener_(unix_socket(SOCK_NONBLOCK)), self_(std::make_shared<Control *>(this)) {
    const sockaddr_un address = address_of(path_);
    // One that a killed service has left behind answers nobody.
    if (connects(unix_socket(0), address)) fail(path_, "another dtfleet is running");
    (void)::unlink(path_.c_str());
    const mode_t before = ::umask(0117);
    const bool bound =
        ::bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    (void)::umask(before);
    if (!bound || ::listen(listener_.get(), 16) != 0) fail(path_, std::strerror(errno));
    listener_number_ = loop_.add(listener_.get(), [this] { accept_all(); });
}

Control::~Control() {
    *self_ = nullptr;
    while (!clients_.empty()) close(clients_.begin()->first);
    loop_.remove(listener_number_, listener_.get());
    (void)::unlink(path_.c_str());
}

void Control::accept_all() {
    for (;;) {
        dtctl::Fd socket(
            ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) return;
        // The number is known only afterwards, and stands in the handler's own place.
        auto number = std::make_shared<uint64_t>();
        *number = loop_.add(socket.get(), [this, number] { receive(*number); });
        clients_.emplace(*number, Client{std::move(socket), ""});
        if (clients_.size() > most_clients) close(clients_.begin()->first);
    }
}

void Control::receive(uint64_t number) {
    const auto found = clients_.find(number);
    if (found == clients_.end()) return;
    std::string &received = found->second.received;
    char bytes[4096];
    const ssize_t count = ::recv(found->second.socket.get(), bytes, sizeof bytes, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return close(number);
    received.append(bytes, static_cast<size_t>(count));
    const size_t end = received.find('\n');
    if (end == received.npos && received.size() > longest_request) return close(number);
    if (end == received.npos) return;
    const json request = json::parse(received.substr(0, end), nullptr, false);
    received.clear();
    if (!request.is_object()) return answer(number, {{"error", "not a JSON object"}});
    handler_(request, [self = self_, number](const json &reply) {
        if (*self) (*self)->answer(number, reply);
    });
}

// Small enough for the socket's buffer, so that a client that reads nothing holds up nobody.
void Control::answer(uint64_t number, const json &answer) {
    const auto found = clients_.find(number);
    if (found == clients_.end()) return;
    const std::string line = line_of(answer);
    (void)::send(found->second.socket.get(), line.data(), line.size(), MSG_NOSIGNAL);
    close(number);
}

void Control::close(uint64_t number) {
    const auto found = clients_.find(number);
    loop_.remove(number, found->second.socket.get());
    clients_.erase(found);
}

json request(const std::string &path, const json &request) {
    const dtctl::Fd socket = unix_socket(0);
    if (!connects(socket, address_of(path)))
        fail(path, errno == EACCES ? "permission denied: only members of its group may ask"
                                   : "no dtfleet is running there");
    const std::string line = line_of(request);
    if (::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0)
        fail(path, std::strerror(errno));
    std::string answer;
    char bytes[4096];
    for (ssize_t count; (count = ::recv(socket.get(), bytes, sizeof bytes, 0)) != 0;) {
        if (count < 0 && errno != EINTR) fail(path, std::strerror(errno));
        if (count > 0) answer.append(bytes, static_cast<size_t>(count));
    }
    json parsed = json::parse(answer, nullptr, false);
    if (!parsed.is_object()) fail(path, "the service ended before it answered");
    return parsed;
}

} // namespace dtfleet
