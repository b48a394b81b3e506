// The server's side against a device in a thread, over loopback.
#include "dtctl/collect/session.h"

#include "run.h"
#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <thread>
#include <vector>

using namespace std::chrono_literals;
using dtctl::Exit;

namespace {

using Sizes = std::vector<ssize_t>;

std::string line_from(const std::string &address) {
    return R"({"device":")" + address +
           R"(","identity":"a102","collector":"pump","index":0,"section":0,"key":7,"type":"int",)"
           R"("value":100})"
           "\n";
}

// Waits for commands; a script sends messages and waits for an answer to each.
struct Device {
    dtctl::Fd commands = dtctl::bind_udp("127.0.0.1", 0);

    std::string command(std::chrono::milliseconds patience = 60s) {
        char bytes[64];
        dtctl::wait_for(commands, POLLIN, dtctl::Clock::now() + patience);
        const ssize_t count = ::recv(commands.get(), bytes, sizeof(bytes), 0);
        return {bytes, count > 0 ? static_cast<size_t>(count) : 0};
    }

    dtctl::Fd connect(const std::string &command, const char *from = "127.0.0.1") {
        const auto byte = [&](size_t i) { return static_cast<unsigned>(command.at(i) & 0xFF); };
        const auto port = static_cast<uint16_t>(byte(12) | byte(13) << 8);
        const sockaddr_in server = dtctl::resolve("127.0.0.1", port);
        const sockaddr_in self = dtctl::resolve(from, 0);
        dtctl::Fd fd(::socket(AF_INET, SOCK_STREAM, 0));
        ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&self), sizeof(self));
        ::connect(fd.get(), reinterpret_cast<const sockaddr *>(&server), sizeof(server));
        return fd;
    }

    // Sizes of the answers; a connection that was closed answers 0.
    Sizes answer(const std::string &command, const std::vector<std::string> &messages,
                 const char *from = "127.0.0.1") {
        const dtctl::Fd fd = connect(command, from);
        Sizes answers;
        for (const std::string &message : messages) {
            char bytes[64];
            (void)::send(fd.get(), message.data(), message.size(), MSG_NOSIGNAL);
            answers.push_back(::recv(fd.get(), bytes, sizeof(bytes), 0));
        }
        return answers;
    }

    // Whether the first bytes were answered. The others follow again and again, without a pause
    // that could be a silence, and end some seconds later.
    bool trickle(const std::string &first, const std::string &piece) {
        const dtctl::Fd fd = connect(command());
        char byte;
        (void)::send(fd.get(), first.data(), first.size(), MSG_NOSIGNAL);
        const bool answered = ::recv(fd.get(), &byte, 1, 0) == 1;
        if (piece.empty()) (void)::recv(fd.get(), &byte, 1, 0);
        for (int i = 0; i < 300 && !piece.empty(); ++i) {
            std::this_thread::sleep_for(10ms);
            if (::send(fd.get(), piece.data(), piece.size(), MSG_NOSIGNAL) < 0) break;
        }
        return answered;
    }
};

dtctl::Request request_for(const Device &device) {
    dtctl::Request request;
    request.timeout = 60s;
    request.device = "127.0.0.1";
    request.device_port = dtctl::local_port(device.commands);
    return request;
}

Outcome run(const dtctl::Request &request) {
    return outcome_of([&](std::FILE *out) {
        dtctl::Progress progress(false);
        const auto printer = dtctl::make_printer({.format = dtctl::Format::json}, out);
        dtctl::Session(request, *printer, progress).run();
    });
}

TEST(Session, EveryMessageOfTheDeviceIsAcknowledgedAndTheValuesPrinted) {
    Device device;
    std::string command;
    Sizes stranger, answers;
    std::thread thread([&] {
        command = device.command();
        stranger = device.answer(command, {data}, "127.0.0.2");
        answers = device.answer(command, {opening, directory, data, end});
    });
    dtctl::Request request = request_for(device);
    request.command = 2;
    request.sequence = 0x01020305;
    const Outcome outcome = run(request);
    thread.join();
    EXPECT_EQ(command.substr(0, 12), "\x10\0\0\0\x02\0\0\0\x05\x03\x02\x01"s);
    EXPECT_EQ(command.substr(14), "\0\0"s);
    EXPECT_LE(stranger.at(0), 0); // closed or reset
    EXPECT_EQ(answers, (Sizes{1, 1, 1, 1}));
    EXPECT_EQ(outcome.code, Exit::success) << outcome.error;
    EXPECT_EQ(outcome.output, line_from("127.0.0.1"));
}

// Neither one that says nothing nor one with the answer to another command is in its way.
TEST(Session, ADeviceWithOtherAddressesIsToldByItsNumber) {
    Device device;
    Sizes stranger, answers;
    std::thread thread([&] {
        const std::string command = device.command();
        const dtctl::Fd silent = device.connect(command);
        stranger = device.answer(command, {opening.substr(0, 8) + "\0\0\0\0\0\0\0\0"s});
        std::string numbered = opening;
        numbered.replace(8, 4, command, 8, 4);
        answers = device.answer(command, {numbered, directory, data, end}, "127.0.0.2");
    });
    dtctl::Request request = request_for(device);
    request.any_address = true;
    const Outcome outcome = run(request);
    thread.join();
    EXPECT_LE(stranger.at(0), 0);
    EXPECT_EQ(answers, (Sizes{1, 1, 1, 1}));
    EXPECT_EQ(outcome.output, line_from("127.0.0.2")) << outcome.error;
}

// The broken message gets no answer but the end of the connection.
TEST(Session, ABreakIsReportedBehindTheValues) {
    Device device;
    dtctl::Request request = request_for(device);
    request.max_value = 5;
    Sizes answers;
    const std::string bad = data.substr(0, 12) + '\x05' + data.substr(13);
    const std::string longer =
        "\x21" + data.substr(1, 11) + '\x84' + data.substr(13, 12) + "\6\0abcdef"s;
    std::thread thread([&] {
        answers = device.answer(device.command(), {opening, directory, data, bad});
        device.answer(device.command(), {opening, directory, data, longer});
        device.answer(device.command(), {opening, directory, data}); // and then breaks off
    });
    for (const char *error :
         {"message 4, byte 12: unknown tag 0x05",
          "message 4, byte 12: the buffer of index 0, section 0, key 7 is longer than 5 bytes",
          "message 4, byte 0: the stream ends without the empty data message that ends a run"}) {
        const Outcome outcome = run(request);
        EXPECT_EQ(outcome.code, Exit::broken);
        EXPECT_EQ(outcome.error, error);
        EXPECT_EQ(outcome.output, line_from("127.0.0.1"));
    }
    thread.join();
    EXPECT_EQ(answers, (Sizes{1, 1, 1, 0}));
}

TEST(Session, SilenceEndsItAfterTheCommandWasRepeated) {
    Device device;
    dtctl::Request request = request_for(device);
    request.timeout = 300ms;
    request.resend = 99;
    const auto begin = dtctl::Clock::now();
    EXPECT_EQ(run(request).code, Exit::timeout);
    EXPECT_GE(dtctl::Clock::now() - begin, request.timeout);
    EXPECT_LT(dtctl::Clock::now() - begin, 50 * request.timeout); // and not once a command
    for (int sent = 0; sent < 100; ++sent) EXPECT_EQ(device.command(0s).size(), 16u);
    EXPECT_EQ(device.command(0s), "");
}

// Single bytes do not put off the time-out, whole messages not the deadline.
TEST(Session, ADeviceThatFallsSilentOrTricklesEndsIt) {
    const std::string longest = "\x0C\x04"s + end.substr(2); // its header
    for (const auto &[piece, timeout, deadline] :
         {std::tuple{""s, 300ms, 0ms}, std::tuple{"x"s, 300ms, 0ms},
          std::tuple{end, 60'000ms, 300ms}}) {
        Device device;
        bool answered = false;
        const std::string first = opening + (piece == "x" ? longest : "");
        std::thread thread([&] { answered = device.trickle(first, piece); });
        dtctl::Request request = request_for(device);
        request.timeout = timeout;
        request.deadline = deadline;
        const Outcome outcome = run(request);
        EXPECT_EQ(outcome.code, Exit::timeout) << outcome.error;
        thread.join();
        EXPECT_TRUE(!answered || outcome.error.starts_with("message ")) << outcome.error;
    }
}

TEST(Session, AnAddressOrPortThatIsTakenRefusesOrIsLooselyWrittenIsUnreachable) {
    Device device;
    dtctl::Request request = request_for(device);
    const dtctl::Fd taken = dtctl::listen_on(0);
    request.listen = dtctl::local_port(taken);
    EXPECT_EQ(run(request).code, Exit::unreachable);
    request.listen = 0;
    for (const char *address : {"127.1", "0x7f.0.0.1", "2130706433", "127.0.0.1 x"}) {
        request.device = address;
        EXPECT_EQ(run(request).code, Exit::unreachable) << address;
    }
    EXPECT_EQ(device.command(0s), "");
    request.device = "127.0.0.1";
    request.resend = 0;
    device.commands = dtctl::Fd();
    EXPECT_EQ(run(request).code, Exit::unreachable);
}

} // namespace
