// The same messages over REQ and REP.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <thread>
#include <zmq.h>

namespace {

using namespace bench;

class Request {
public:
    static constexpr bool threads = true;

    Request() : context_(zmq_ctx_new()), server_(zmq_socket(context_, ZMQ_REP)) {
        zmq_bind(server_, "tcp://127.0.0.1:*");
        char address[100];
        size_t size = sizeof address;
        zmq_getsockopt(server_, ZMQ_LAST_ENDPOINT, address, &size);
        thread_ = std::thread([this] { serve(); });
        client_ = zmq_socket(context_, ZMQ_REQ);
        zmq_connect(client_, address);
    }
    Request(const Request &) = delete;
    ~Request() {
        zmq_close(client_);
        zmq_ctx_shutdown(context_);
        thread_.join();
        zmq_close(server_);
        zmq_ctx_term(context_);
    }

    void operator()() {
        char answer[16];
        write_message(message_ + header_size, &value_);
        zmq_send(client_, message_, sizeof message_, 0);
        zmq_recv(client_, answer, sizeof answer, 0);
    }

    std::string kept() {
        value_ = 0;
        for (int i = 0; i < 3; ++i) (*this)();
        return std::string(received_ + header_size, received_ + sizeof received_);
    }

private:
    void serve() {
        const char answer[answer_size] = {};
        while (zmq_recv(server_, received_, sizeof received_, 0) > 0)
            zmq_send(server_, answer, sizeof answer, 0);
    }

    void *context_;
    void *server_;
    void *client_;
    std::thread thread_;
    uint8_t message_[message_size] = {};
    uint8_t received_[message_size];
    uint32_t value_ = 0;
};

const Family zmq([] { contend<Request>("collection message", "ZeroMQ"); });

} // namespace
