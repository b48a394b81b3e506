// Full messages of int frames to a collection server on loopback, and making the frames alone.
#include "bench/bench.h"
#include "bench/inputs.h"
#include "bench/loopback.h"

#include <dt/collect.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace bench;

constexpr int checked_messages = 3;

void put_message(uint32_t *value) {
    const FrameHeader header;
    for (int i = 0; i < frames_of_a_message; ++i)
        CollectClient_CollectInt(header.index, header.section, header.key, ++*value);
}

void start(uint16_t port) {
    CollectClient_Start("127.0.0.1", port);
    CollectClient_SetType(COLLECT_MESSAGE_DATA);
}

// ---- a run: the server on a thread, both ends on one core ----

class DtRun {
public:
    static constexpr bool threads = true;

    DtRun() = default;
    DtRun(const DtRun &) = delete;
    ~DtRun() {
        begin(); // the connection may be another's
        CollectClient_End();
    }

    // A full message waits: the next frame sends it.
    void begin() {
        start(server_.port());
        CollectClient_Flush(0);
        put_message(&value_);
    }
    void operator()() { put_message(&value_); }

    std::string kept() {
        value_ = 0;
        for (int i = 0; i < checked_messages; ++i) (*this)();
        CollectClient_Flush(0);
        return server_.payload();
    }

private:
    AnsweringServer server_;
    uint32_t value_ = 0;
};

class LimitRun {
public:
    static constexpr bool threads = true;

    LimitRun() : fd_(connect_to(server_.port())) {}
    LimitRun(const LimitRun &) = delete;
    ~LimitRun() { close(fd_); }

    void operator()() {
        char answer[16];
        write_message(message_ + header_size, &value_);
        send(fd_, message_, sizeof message_, MSG_NOSIGNAL);
        recv(fd_, answer, sizeof answer, 0);
    }

    std::string kept() {
        value_ = 0;
        for (int i = 0; i < checked_messages; ++i) (*this)();
        return server_.payload();
    }

private:
    AnsweringServer server_;
    int fd_;
    uint8_t message_[message_size] = {};
    uint32_t value_ = 0;
};

// ---- frames alone: an empty message is filled, sending it does not count ----

class DtFrames {
public:
    DtFrames() = default;
    DtFrames(const DtFrames &) = delete;
    ~DtFrames() { close(peer_); }

    void begin() {
        start(listener_.port());
        close(peer_);
        peer_ = listener_.accept();
    }
    // The acknowledgement is there before the message.
    void prepare() {
        send(peer_, "ack", answer_size, 0);
        CollectClient_Flush(0);
        size_ = recv(peer_, message_, sizeof message_, 0);
    }
    void operator()() { put_message(&value_); }

    std::string kept() {
        prepare();
        value_ = 0;
        (*this)();
        prepare();
        return std::string(message_ + header_size, message_ + size_);
    }
    size_t operations() const { return frames_of_a_message; }

private:
    Listener listener_;
    int peer_ = -1;
    char message_[2 * message_size];
    ssize_t size_ = 0;
    uint32_t value_ = 0;
};

class LimitFrames {
public:
    void prepare() {}
    void operator()() {
        write_message(payload_, &value_);
        use(payload_);
    }
    std::string kept() {
        value_ = 0;
        (*this)();
        return std::string(payload_, payload_ + sizeof payload_);
    }
    size_t operations() const { return frames_of_a_message; }

private:
    uint8_t payload_[payload_size];
    uint32_t value_ = 0;
};

const Family collect([] {
    contend<DtFrames>("int frame", libdt);
    contend<LimitFrames>("int frame", limit);
    contend<DtRun>("collection message", libdt);
    contend<LimitRun>("collection message", limit);
});

} // namespace
