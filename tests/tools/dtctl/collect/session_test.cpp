// The server's side against a device in a thread, over loopback.
#include "dtctl/collect/session.h"

#include "run.h"
#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using dtctl::Exit;

namespace {

using Sizes = std::vector<ssize_t>;

std::string line_from(const std::string &device) {
    const char *const rest = R"("index":0,"section":0,"key":7,"type":"int","value":100})";
    return R"({"device":")" + device + R"(","identity":"a102","collector":"pump",)" + rest + '\n';
}

bool send(const dtctl::Fd &fd, const std::string &bytes) {
    return ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

// Sizes of the answers; a connection that was closed answers 0.
Sizes exchange(const dtctl::Fd &fd, const std::vector<std::string> &messages) {
    Sizes answers;
    char bytes[64];
    for (const std::string &message : messages) {
        (void)send(fd, message);
        answers.push_back(::recv(fd.get(), bytes, sizeof(bytes), 0));
    }
    return answers;
}

// What is asked, and who is asked.
struct Device {
    dtctl::Fd commands = dtctl::bind_udp("127.0.0.1", 0);
    dtctl::Request request{
        .device = "127.0.0.1", .device_port = dtctl::local_port(commands), .timeout = 60s};

    std::string command(std::chrono::milliseconds patience = 60s) {
        char bytes[64];
        dtctl::wait_for(commands, POLLIN, dtctl::Clock::now() + patience);
        const ssize_t count = ::recv(commands.get(), bytes, sizeof(bytes), 0);
        return {bytes, count > 0 ? static_cast<size_t>(count) : 0};
    }
    dtctl::Fd connect(const std::string &command, const std::string &from = "127.0.0.1") {
        const auto byte = [&](size_t i) { return static_cast<unsigned>(command.at(i) & 0xFF); };
        const auto port = static_cast<uint16_t>(byte(12) | byte(13) << 8);
        const sockaddr_in ends[] = {dtctl::resolve(from, 0), dtctl::resolve("127.0.0.1", port)};
        dtctl::Fd fd(::socket(AF_INET, SOCK_STREAM, 0));
        ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&ends[0]), sizeof(ends[0]));
        ::connect(fd.get(), reinterpret_cast<const sockaddr *>(&ends[1]), sizeof(ends[1]));
        return fd;
    }
    Outcome run() const {
        return outcome_of([&](std::FILE *out) {
            dtctl::Progress progress(false);
            const auto printer = dtctl::make_printer({.format = dtctl::Format::json}, out);
            dtctl::Session(request, *printer, progress).run();
        });
    }
};

// Who has another address, or any but with another number, or says nothing, is not in its way.
TEST(Session, EveryMessageOfTheDeviceIsAcknowledgedAndTheValuesPrinted) {
    for (const bool any : {false, true}) {
        Device device;
        device.request.command = 2;
        device.request.any_address = any;
        device.request.sequence = any ? 0 : 0x01020305;
        const std::string from = any ? "127.0.0.4" : "127.0.0.1";
        std::string command, first = opening;
        Sizes stranger, answers;
        std::thread thread([&] {
            command = device.command();
            const dtctl::Fd silent = device.connect(command, "127.0.0.3");
            stranger = exchange(device.connect(command, "127.0.0.2"), {opening.substr(0, 8) + end});
            first.replace(8, 4, command, 8, 4);
            const dtctl::Fd fd = device.connect(command, from);
            (void)send(fd, first.substr(0, 5));
            std::this_thread::sleep_for(20ms);
            answers = exchange(fd, {first.substr(5), directory, data, end});
        });
        const Outcome outcome = device.run();
        thread.join();
        EXPECT_EQ(command.substr(0, 8) + command.substr(14), "\x10\0\0\0\x02\0\0\0\0\0"s);
        EXPECT_NE(command.substr(8, 4), "\0\0\0\0"s);
        EXPECT_TRUE(any || command.substr(8, 4) == "\x05\x03\x02\x01");
        EXPECT_LE(stranger.at(0), 0); // closed or reset
        EXPECT_EQ(answers, (Sizes{1, 1, 1, 1}));
        EXPECT_EQ(outcome.output, line_from(from)) << outcome.error;
        EXPECT_EQ(outcome.code, Exit::success);
    }
}

// The broken message gets no answer but the end of the connection.
TEST(Session, ABreakIsReportedBehindTheValues) {
    Device device;
    device.request.max_value = 5;
    Sizes answers;
    std::thread thread([&] {
        answers = exchange(device.connect(device.command()), {opening, directory, data, longer});
        exchange(device.connect(device.command()), {opening, directory, data}); // and breaks off
    });
    for (const char *error :
         {"message 4, byte 12: the buffer of index 0, section 0, key 7 is longer than 5 bytes",
          "message 4, byte 0: the stream ends without the empty data message that ends a run"}) {
        const Outcome outcome = device.run();
        EXPECT_EQ(outcome.code, Exit::broken);
        EXPECT_EQ(outcome.error, error);
        EXPECT_EQ(outcome.output, line_from("127.0.0.1"));
    }
    thread.join();
    EXPECT_EQ(answers, (Sizes{1, 1, 1, 0}));
}

TEST(Session, SilenceEndsItAfterTheCommandWasRepeated) {
    Device device;
    device.request.timeout = 300ms;
    device.request.resend = 99;
    const auto begin = dtctl::Clock::now();
    EXPECT_EQ(device.run().code, Exit::timeout);
    EXPECT_GE(dtctl::Clock::now() - begin, 300ms);
    EXPECT_LT(dtctl::Clock::now() - begin, 15s); // and not once a command
    for (int sent = 0; sent < 100; ++sent) EXPECT_EQ(device.command(0s).size(), 16u);
    EXPECT_EQ(device.command(0s), "");
}

// Single bytes do not put off the time-out, nor whole messages the deadline.
// Whatever the signals.
TEST(Session, ADeviceThatFallsSilentOrTricklesEndsIt) {
    std::signal(SIGALRM, [](int) {});
    ::ualarm(50'000, 50'000);
    const std::string header = "\x0C\x04"s + end.substr(2); // of the longest message
    for (const auto &[first, piece] :
         {std::pair{opening, ""s}, {opening + header, "x"}, {opening, end}}) {
        Device device;
        (piece == end ? device.request.deadline : device.request.timeout) = 300ms;
        Sizes answers;
        std::thread thread([&] {
            const dtctl::Fd fd = device.connect(device.command());
            answers = exchange(fd, {first});
            if (piece.empty()) exchange(fd, {""});
            for (int i = 0; i < 300 && !piece.empty() && send(fd, piece); ++i)
                std::this_thread::sleep_for(10ms);
        });
        const Outcome outcome = device.run();
        thread.join();
        EXPECT_EQ(outcome.code, Exit::timeout) << outcome.error;
        EXPECT_TRUE(answers != Sizes{1} || outcome.error.starts_with("message ")) << outcome.error;
        EXPECT_EQ(outcome.error.ends_with("the run is not over after 0.3 s"), piece == end);
    }
    ::ualarm(0, 0);
}

TEST(Session, AnAddressOrPortThatIsTakenRefusesOrIsLooselyWrittenIsUnreachable) {
    Device device;
    const dtctl::Fd taken = dtctl::listen_on(0);
    device.request.listen = dtctl::local_port(taken);
    EXPECT_EQ(device.run().code, Exit::unreachable);
    device.request.listen = 0;
    for (const char *address : {"127.1", "0x7f.0.0.1", "2130706433", "127.0.0.1 x"}) {
        device.request.device = address;
        EXPECT_EQ(device.run().code, Exit::unreachable) << address;
    }
    EXPECT_EQ(device.command(0s), "");
    device.request.device = "127.0.0.1";
    device.request.resend = 0;
    device.commands = dtctl::Fd();
    EXPECT_EQ(device.run().code, Exit::unreachable);
}

} // namespace
