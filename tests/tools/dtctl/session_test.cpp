// The server's side against a device in a thread, over loopback.
#include "dtctl/failure.h"
#include "dtctl/session.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace std::string_literals;
using dtctl::Exit;
using dtctl::Fd;

namespace {

const std::string opening = "\x10\0\0\0\0\0\0\0\x05\x03\x02\x01\xA1\x02\0\0"s;
const std::string directory = "\x16\0\0\0\x01\0\0\0\x01\0\0\0\0\0\0\0\x04\0pump"s;
const std::string data = "\x1D\0\0\0\x02\0\0\0\x02\0\0\0\x81\0\0\0\0\0\0\0\0\x07\0\0\0\x64\0\0\0"s;
const std::string end = "\x0C\0\0\0\x02\0\0\0\x03\0\0\0"s;
const std::string line =
    "{\"identity\":\"a102\",\"collector\":\"pump\",\"index\":0,\"section\":0,\"key\":7,"
    "\"type\":\"int\",\"value\":100}\n";

sockaddr_in loopback(uint16_t port, in_addr_t host = INADDR_LOOPBACK) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    address.sin_port = htons(port);
    return address;
}

// Waits for commands; a script sends messages and waits for an answer to each.
class Device {
public:
    Device() : commands_(::socket(AF_INET, SOCK_DGRAM, 0)) {
        const sockaddr_in address = loopback(0);
        EXPECT_EQ(
            ::bind(commands_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)),
            0);
    }

    uint16_t port() const { return dtctl::local_port(commands_); }

    std::string command() {
        char bytes[64];
        const ssize_t count = ::recv(commands_.get(), bytes, sizeof(bytes), 0);
        return {bytes, count > 0 ? static_cast<size_t>(count) : 0};
    }

    size_t commands_waiting() {
        size_t count = 0;
        char bytes[64];
        while (::recv(commands_.get(), bytes, sizeof(bytes), MSG_DONTWAIT) > 0) ++count;
        return count;
    }

    // Sizes of the answers; a connection that was closed answers 0.
    std::vector<ssize_t> answer(const std::string &command,
                                const std::vector<std::string> &messages,
                                in_addr_t host = INADDR_LOOPBACK) {
        const auto byte = [&](size_t i) { return static_cast<unsigned>(command[i] & 0xFF); };
        const sockaddr_in server = loopback(static_cast<uint16_t>(byte(12) | byte(13) << 8));
        const sockaddr_in self = loopback(0, host);
        const Fd fd(::socket(AF_INET, SOCK_STREAM, 0));
        EXPECT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr *>(&self), sizeof(self)), 0);
        EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr *>(&server), sizeof(server)),
                  0);
        std::vector<ssize_t> answers;
        for (const std::string &message : messages) {
            char bytes[64];
            (void)::send(fd.get(), message.data(), message.size(), MSG_NOSIGNAL);
            answers.push_back(::recv(fd.get(), bytes, sizeof(bytes), 0));
        }
        return answers;
    }

private:
    Fd commands_;
};

struct Result {
    Exit code = Exit::success;
    std::string error;
    std::string output;
};

dtctl::Request request_for(const Device &device) {
    dtctl::Request request;
    request.device = "127.0.0.1";
    request.device_port = device.port();
    return request;
}

Result run_session(const dtctl::Request &request) {
    Result result;
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    try {
        dtctl::Progress progress(false);
        const auto printer = dtctl::make_printer(dtctl::Format::json, out);
        dtctl::Session(request, *printer, progress).run();
    } catch (const dtctl::Failure &failure) {
        result.code = failure.code();
        result.error = failure.what();
    }
    std::fclose(out);
    result.output.assign(text, size);
    std::free(text);
    return result;
}

TEST(Session, EveryMessageIsAcknowledgedAndTheValuesPrinted) {
    Device device;
    std::string command;
    std::vector<ssize_t> answers;
    std::thread thread([&] {
        command = device.command();
        answers = device.answer(command, {opening, directory, data, end});
    });
    dtctl::Request request = request_for(device);
    request.command = 2;
    request.sequence = 0x01020305;
    const Result result = run_session(request);
    thread.join();
    EXPECT_EQ(command.substr(0, 12), "\x10\0\0\0\x02\0\0\0\x05\x03\x02\x01"s);
    EXPECT_EQ(command.substr(14), "\0\0"s);
    EXPECT_EQ(answers, (std::vector<ssize_t>{1, 1, 1, 1}));
    EXPECT_EQ(result.code, Exit::success) << result.error;
    EXPECT_EQ(result.output, line);
}

// The broken message gets no answer but the end of the connection.
TEST(Session, ABreakIsReportedBehindTheValues) {
    Device device;
    std::vector<ssize_t> answers;
    std::string bad = data;
    bad[12] = '\x05';
    std::thread thread([&] {
        answers = device.answer(device.command(), {opening, directory, data, bad});
    });
    const Result result = run_session(request_for(device));
    thread.join();
    EXPECT_EQ(answers, (std::vector<ssize_t>{1, 1, 1, 0}));
    EXPECT_EQ(result.code, Exit::broken);
    EXPECT_EQ(result.error, "message 4, byte 12: unknown tag 0x05");
    EXPECT_EQ(result.output, line);
}

TEST(Session, OnlyTheDeviceIsListenedTo) {
    Device device;
    std::vector<ssize_t> stranger;
    std::thread thread([&] {
        const std::string command = device.command();
        stranger = device.answer(command, {data}, INADDR_LOOPBACK + 1);
        device.answer(command, {opening, directory, data, end});
    });
    const Result result = run_session(request_for(device));
    thread.join();
    ASSERT_EQ(stranger.size(), 1u);
    EXPECT_LE(stranger[0], 0); // closed or reset
    EXPECT_EQ(result.code, Exit::success) << result.error;
    EXPECT_EQ(result.output, line);
}

TEST(Session, ADeviceThatBreaksOffIsNoSuccess) {
    Device device;
    std::thread thread([&] { device.answer(device.command(), {opening, directory, data}); });
    const Result result = run_session(request_for(device));
    thread.join();
    EXPECT_EQ(result.code, Exit::broken);
    EXPECT_EQ(result.output, line);
}

TEST(Session, SilenceEndsItAfterTheCommandWasRepeated) {
    Device device;
    dtctl::Request request = request_for(device);
    request.timeout = std::chrono::milliseconds(150);
    const Result result = run_session(request);
    EXPECT_EQ(result.code, Exit::timeout);
    EXPECT_EQ(device.commands_waiting(), 3u);
}

TEST(Session, APortThatIsTakenOrRefusesIsUnreachable) {
    auto device = std::make_unique<Device>();
    dtctl::Request request = request_for(*device);
    const Fd taken = dtctl::listen_on(0);
    request.listen = dtctl::local_port(taken);
    EXPECT_EQ(run_session(request).code, Exit::unreachable);
    EXPECT_EQ(device->commands_waiting(), 0u);
    request.listen = 0;
    device.reset();
    EXPECT_EQ(run_session(request).code, Exit::unreachable);
}

} // namespace
