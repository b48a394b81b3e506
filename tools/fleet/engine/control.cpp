#include "fleet/engine/control.h"

#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace dtfleet {
namespace {

using nlohmann::json;

constexpr size_t longest_request = 65'536;
constexpr size_t most_clients = 64;
constexpr Time patience = std::chrono::seconds(10); // with a client that does not go on

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

// What a killed service has left behind, and nothing else.
void remove_socket(const std::string &path) {
    struct stat there {};
    if (::lstat(path.c_str(), &there) != 0) return;
    if (!S_ISSOCK(there.st_mode)) fail(path, "this is there already, and is no socket");
    (void)::unlink(path.c_str());
}

std::string line_of(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace

Control::Control(std::string path, Loop &loop, Handler handler)
    : path_(std::move(path)), loop_(loop), handler_(std::move(handler)),
      listener_(unix_socket(SOCK_NONBLOCK)), self_(std::make_shared<Control *>(this)) {
    const sockaddr_un address = address_of(path_);
    if (connects(unix_socket(0), address)) fail(path_, "another dtfleet is running");
    remove_socket(path_);
    // The mask of the process would be that of all its threads.
    if (::fchmod(listener_.get(), 0600) != 0 ||
        ::bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) !=
            0 ||
        ::chmod(path_.c_str(), 0660) != 0 || ::listen(listener_.get(), 64) != 0)
        fail(path_, std::strerror(errno));
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
        if (clients_.size() >= most_clients) make_room();
        dtctl::Fd socket(
            ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) return rest(!dtctl::would_block(errno));
        if (!greet(std::move(socket))) return rest(true);
    }
}

// False when the loop has no room for it.
bool Control::greet(dtctl::Fd socket) {
    // The number is known only afterwards, and stands in the handler's own place.
    auto number = std::make_shared<uint64_t>();
    try {
        *number = loop_.add(socket.get(), [this, number] { go_on(*number); });
    } catch (const dtctl::Failure &) {
        return false;
    }
    clients_[*number].socket = std::move(socket);
    return true;
}

// Without a descriptor for it a client stays in the queue, and the socket would be called ready
// again at once and for ever.
void Control::rest(bool is_resting) {
    if (std::exchange(is_resting_, is_resting) != is_resting)
        loop_.watch(listener_number_, listener_.get(), !is_resting, false);
}

// Rather than who waits for its answer, the oldest one goes that has not asked yet.
void Control::make_room() {
    auto oldest = std::find_if(clients_.begin(), clients_.end(),
                               [](const auto &client) { return !client.second.is_served; });
    close(oldest == clients_.end() ? clients_.begin()->first : oldest->first);
}

void Control::go_on(uint64_t number) {
    const auto found = clients_.find(number);
    if (found == clients_.end()) return;
    if (found->second.answer.empty())
        receive(number, found->second);
    else
        send_some(number, found->second);
}

void Control::receive(uint64_t number, Client &client) {
    char bytes[4096];
    const ssize_t count = ::recv(client.socket.get(), bytes, sizeof bytes, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0 || client.is_served) return close(number);
    client.received.append(bytes, static_cast<size_t>(count));
    const size_t end = client.received.find('\n');
    if (end == std::string::npos && client.received.size() > longest_request) return close(number);
    if (end == std::string::npos) return;
    client.is_served = true;
    loop_.watch(number, client.socket.get(), false, false); // its end is reported all the same
    serve(number, std::exchange(client.received, "").substr(0, end));
}

void Control::serve(uint64_t number, const std::string &line) {
    const json request = json::parse(line, nullptr, false);
    if (!request.is_object()) return answer(number, {{"error", "not a JSON object"}});
    handler_(request, [self = self_, number](const json &reply) {
        if (*self) (*self)->answer(number, reply);
    });
}

void Control::answer(uint64_t number, const json &answer) {
    const auto found = clients_.find(number);
    if (found == clients_.end()) return;
    found->second.answer = line_of(answer);
    found->second.since = now();
    loop_.watch(number, found->second.socket.get(), false, true);
    send_some(number, found->second);
}

// What the socket has no room for goes when there is some.
void Control::send_some(uint64_t number, Client &client) {
    const ssize_t sent = ::send(client.socket.get(), client.answer.data(), client.answer.size(),
                                MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (sent >= 0) client.answer.erase(0, static_cast<size_t>(sent));
    client.since = now();
    if (sent < 0 || client.answer.empty()) close(number);
}

void Control::pass(Time time) {
    if (is_resting_) accept_all();
    std::vector<uint64_t> stuck;
    for (const auto &[number, client] : clients_) {
        const bool waits_for_us = client.is_served && client.answer.empty();
        if (!waits_for_us && client.since + patience <= time) stuck.push_back(number);
    }
    for (const uint64_t number : stuck) close(number);
}

void Control::close(uint64_t number) {
    const auto found = clients_.find(number);
    loop_.remove(number, found->second.socket.get());
    clients_.erase(found);
}

namespace {

void send_all(const dtctl::Fd &socket, std::string_view text, const std::string &path) {
    while (!text.empty()) {
        const ssize_t sent = ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR) fail(path, std::strerror(errno));
        if (sent > 0) text.remove_prefix(static_cast<size_t>(sent));
    }
}

} // namespace

std::optional<json> request_if_running(const std::string &path, const json &request) {
    const dtctl::Fd socket = unix_socket(0);
    if (!connects(socket, address_of(path))) {
        if (errno == ENOENT || errno == ECONNREFUSED) return std::nullopt;
        fail(path, errno == EACCES ? "permission denied: only members of its group may ask"
                                   : std::strerror(errno));
    }
    send_all(socket, line_of(request), path);
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

json request(const std::string &path, const json &request) {
    auto answer = request_if_running(path, request);
    if (!answer) fail(path, "no dtfleet is running there");
    return *std::move(answer);
}

} // namespace dtfleet
