#include "fleet/web/server.h"

#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <microhttpd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <exception>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

constexpr size_t most_header_bytes = 16'384; // of a request's head, and of its answer's

dtctl::Fd listen_at(const sockaddr_in &address) {
    dtctl::Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    if (::bind(fd.get(), name, sizeof address) != 0 || ::listen(fd.get(), SOMAXCONN) != 0)
        throw Failure(Exit::unreachable,
                      fmt::format("the page cannot listen on {}:{}: {}",
                                  dtctl::address_text(address), ntohs(address.sin_port),
                                  std::strerror(errno)));
    return fd;
}

// Signals are the loop's business.
template <typename Body> std::thread thread_without_signals(Body body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)::pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(body);
    (void)::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

std::string header(MHD_Connection *connection, const char *name) {
    const char *value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

// Programs send it as a bearer's, browsers as the password that they ask for.
std::string token_of(MHD_Connection *connection) {
    constexpr std::string_view bearer = "Bearer ";
    const std::string header_text = header(connection, "Authorization");
    if (header_text.starts_with(bearer)) return header_text.substr(bearer.size());
    char *password = nullptr;
    char *user = MHD_basic_auth_get_username_password(connection, &password);
    std::string token = password ? password : "";
    MHD_free(password);
    MHD_free(user);
    return token;
}

MHD_Result take_parameter(void *request, MHD_ValueKind, const char *key, size_t key_size,
                          const char *value, size_t value_size) {
    static_cast<Request *>(request)->parameters.emplace_back(
        std::string(key, key_size), value ? std::string(value, value_size) : "");
    return MHD_YES;
}

Request request_of(MHD_Connection *connection, const char *path, const char *method) {
    Request request;
    request.path = path;
    request.method = method;
    request.host = header(connection, "Host");
    request.token = token_of(connection);
    request.if_none_match = header(connection, "If-None-Match");
    const std::string length = header(connection, "Content-Length");
    request.has_body =
        !(length.empty() || length == "0") || !header(connection, "Transfer-Encoding").empty();
    (void)MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, take_parameter, &request);
    return request;
}

// What no page of ours ever asks for is refused before anything of it is looked at.
std::optional<Answer> refusal(const Request &request) {
    if (request.method != "GET" && request.method != "HEAD")
        return Answer{405, "only GET and HEAD\n"}.with("Allow", "GET, HEAD");
    if (request.has_body) return Answer{413, "requests have no body here\n"};
    return std::nullopt;
}

// What holds for every answer: nothing from elsewhere runs in the page, nobody frames it, and what
// a browser keeps it asks about before it uses it.
constexpr std::pair<const char *, const char *> common_headers[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
     "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-cache"},
};

void add_headers(MHD_Response *response, const Answer &answer) {
    for (const auto &[name, value] : common_headers) MHD_add_response_header(response, name, value);
    for (const auto &[name, value] : answer.headers)
        MHD_add_response_header(response, name, value.c_str());
    MHD_add_response_header(response, "Content-Type", answer.type.c_str());
    if (!answer.tag.empty())
        MHD_add_response_header(response, "ETag", ('"' + answer.tag + '"').c_str());
}

// The answer must stay where it is until it is sent.
bool send(MHD_Connection *connection, Answer &answer) {
    MHD_Response *response = MHD_create_response_from_buffer(answer.body.size(), answer.body.data(),
                                                             MHD_RESPMEM_PERSISTENT);
    if (!response) return false;
    add_headers(response, answer);
    const bool is_queued = MHD_queue_response(connection, answer.status, response) == MHD_YES;
    MHD_destroy_response(response);
    return is_queued;
}

Answer busy() { return Answer{503, "busy; ask again\n"}.with("Retry-After", "2"); }

} // namespace

struct Server::Exchange {
    Request request;
    MHD_Connection *connection;
    Answer answer{};
    bool is_handed_over = false;
};

struct Server::Calls {
    static Connections::Place &place(MHD_Connection *connection) {
        const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        return *static_cast<Connections::Place *>(info->socket_context);
    }

    static void connection(void *server, MHD_Connection *connection, void **context,
                           MHD_ConnectionNotificationCode code) {
        Connections &table = static_cast<Server *>(server)->connections_;
        auto *place = static_cast<Connections::Place *>(*context);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const auto *info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            *context = new Connections::Place(table.add(info->connect_fd, now()));
        } else {
            table.remove(*place);
            delete place;
        }
    }

    static bool begin(Server &server, MHD_Connection *connection, const char *path,
                      const char *method, void **context) {
        auto *exchange = new Exchange{request_of(connection, path, method), connection};
        *context = exchange;
        auto refused = refusal(exchange->request);
        if (!refused) return true;
        exchange->answer = std::move(*refused);
        return server.finish(*exchange);
    }

    // Called when the head is there, when all is, and when the connection is resumed. Without
    // memory the connection is closed.
    static MHD_Result request(void *cls, MHD_Connection *connection, const char *path,
                              const char *method, const char *, const char *, size_t *,
                              void **context) {
        Server &server = *static_cast<Server *>(cls);
        try {
            const bool goes_on = *context ? server.answer(*static_cast<Exchange *>(*context))
                                          : begin(server, connection, path, method, context);
            return goes_on ? MHD_YES : MHD_NO;
        } catch (const std::exception &) {
            return MHD_NO;
        }
    }

    static void completed(void *server, MHD_Connection *connection, void **context,
                          MHD_RequestTerminationCode) {
        static_cast<Server *>(server)->connections_.end_answer(place(connection), now());
        delete static_cast<Exchange *>(*context);
    }
};

Server::Server(const sockaddr_in &address, const WebBounds &bounds, Handlers handlers)
    : handlers_(std::move(handlers)), bounds_(bounds), connections_(bounds),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), daemon_(nullptr, MHD_stop_daemon) {
    dtctl::Fd listener = listen_at(address);
    port_ = dtctl::local_port(listener);
    // More than are allowed, so that one can be chosen that goes.
    const auto most = static_cast<unsigned>(bounds_.connections + bounds_.connections / 4 + 1);
    daemon_.reset(
        MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
                         Calls::request, this, MHD_OPTION_LISTEN_SOCKET, listener.get(),
                         MHD_OPTION_CONNECTION_LIMIT, most, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                         most_header_bytes, MHD_OPTION_NOTIFY_CONNECTION, Calls::connection, this,
                         MHD_OPTION_NOTIFY_COMPLETED, Calls::completed, this, MHD_OPTION_END));
    if (!daemon_) throw Failure(Exit::failed, "the page's server cannot be started");
    (void)listener.release(); // its own now
    reading_ = thread_without_signals([this] { read(); });
    serving_ = thread_without_signals([this] { serve(); });
}

Server::~Server() {
    stop_reading();
    is_over_ = true;
    wake();
    serving_.join();
    (void)MHD_run(daemon_.get()); // takes back what stop_reading() has resumed
    daemon_.reset();
}

// ---- the serving thread -------------------------------------------------------------------------

int Server::patience() const {
    MHD_UNSIGNED_LONG_LONG wanted = INT_MAX;
    if (MHD_get_timeout(daemon_.get(), &wanted) != MHD_YES) wanted = INT_MAX;
    int64_t left = static_cast<int64_t>(std::min<MHD_UNSIGNED_LONG_LONG>(wanted, INT_MAX));
    if (const auto next = connections_.next())
        left = std::clamp<int64_t>(
            std::chrono::ceil<std::chrono::milliseconds>(*next - now()).count(), 0, left);
    return left == INT_MAX ? -1 : static_cast<int>(left);
}

void Server::serve() {
    const auto *info = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD);
    pollfd entries[] = {{info->epoll_fd, POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    while (!is_over_) {
        (void)::poll(entries, std::size(entries), patience());
        eventfd_t count = 0;
        (void)::eventfd_read(wake_.get(), &count);
        (void)MHD_run(daemon_.get());
        connections_.end_late(now());
    }
}

// For what it does not see by itself: a connection that another thread has resumed.
void Server::wake() { (void)::eventfd_write(wake_.get(), 1); }

bool Server::answer(Exchange &exchange) {
    if (exchange.is_handed_over) return send(exchange.connection, exchange.answer);
    if (auto answer = handlers_.at_once(exchange.request)) {
        exchange.answer = std::move(*answer);
        return finish(exchange);
    }
    if (hand_over(exchange)) return true;
    exchange.answer = busy();
    return finish(exchange);
}

bool Server::finish(Exchange &exchange) {
    connections_.begin_answer(Calls::place(exchange.connection), now());
    return send(exchange.connection, exchange.answer);
}

bool Server::hand_over(Exchange &exchange) {
    const std::lock_guard lock(mutex_);
    if (stopping_ || readings_.size() >= bounds_.readings) return false;
    connections_.begin_answer(Calls::place(exchange.connection), now());
    exchange.is_handed_over = true;
    MHD_suspend_connection(exchange.connection);
    readings_.push_back(&exchange);
    changed_.notify_one();
    return true;
}

// ---- the reading thread -------------------------------------------------------------------------

Server::Exchange *Server::next_reading() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopping_ || !readings_.empty(); });
    if (stopping_) return nullptr;
    Exchange *exchange = readings_.front();
    readings_.pop_front();
    return exchange;
}

void Server::read() {
    while (Exchange *exchange = next_reading()) {
        exchange->answer = handlers_.later(exchange->request);
        MHD_resume_connection(exchange->connection); // and belongs to the serving thread again
        wake();
    }
}

void Server::stop_reading() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_one();
    }
    reading_.join();
    for (Exchange *exchange : readings_) {
        exchange->answer = busy();
        MHD_resume_connection(exchange->connection);
    }
}

} // namespace dtfleet
