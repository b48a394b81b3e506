// The socket by which commands reach the running service: one JSON object a line, one answer.
#pragma once

#include "fleet/engine/loop.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace dtfleet {

class Control {
public:
    // Sends the answer, at once or later, and ends the connection; harmless when its client has
    // gone.
    using Reply = std::function<void(const nlohmann::json &answer)>;
    using Handler = std::function<void(const nlohmann::json &request, Reply reply)>;

    // The loop must outlive it. Throws dtctl::Failure when another service answers at that path, or
    // when it cannot be made. Its group may use it (0660).
    Control(std::string path, Loop &loop, Handler handler);
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    // Closes clients that do not go on; to be called now and then.
    void pass(Time time);

private:
    struct Client {
        dtctl::Fd socket;
        std::string received;
        std::string answer;     // what is left of it
        Time since = now();     // when it last went on
        bool is_served = false; // its request is whole; it is we who are slow
    };

    void accept_all();
    bool greet(dtctl::Fd socket);
    void rest(bool is_resting);
    void go_on(uint64_t number);
    void receive(uint64_t number, Client &client);
    void serve(uint64_t number, const std::string &line);
    void send_some(uint64_t number, Client &client);
    void make_room();
    void answer(uint64_t number, const nlohmann::json &answer);
    void close(uint64_t number);

    std::string path_;
    Loop &loop_;
    Handler handler_;
    dtctl::Fd listener_;
    uint64_t listener_number_ = 0;
    bool is_resting_ = false;            // no descriptor was left
    std::map<uint64_t, Client> clients_; // by their numbers in the loop, the oldest first
    std::shared_ptr<Control *> self_;    // for replies that come after its end
};

// What a client does: sends the request and returns the answer. Throws dtctl::Failure when no
// service answers there.
nlohmann::json request(const std::string &path, const nlohmann::json &request);

// The same; nothing when no service answers there. Throws for one that we may not ask.
std::optional<nlohmann::json> request_if_running(const std::string &path,
                                                 const nlohmann::json &request);

} // namespace dtfleet
