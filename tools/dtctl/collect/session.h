// One collection from one device: the server's side, from the command to the end of the run.
#pragma once

#include "decode/decoder.h"
#include "dtctl/collect/callers.h"
#include "dtctl/output/printer.h"
#include "dtctl/output/progress.h"
#include "host/socket.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace dtctl {

struct Request {
    std::string device;
    uint16_t device_port = dt::decode::wire::command_port;
    uint32_t command = 0;                      // 0 to 2 collect, 3 is the self-test
    uint32_t sequence = 0;                     // 0 to 2^31 - 1; the number of the opening message
    uint16_t listen = 0;                       // 0: any free port
    std::chrono::milliseconds timeout{10'000}; // longest wait for a whole message
    std::chrono::milliseconds deadline{0};     // longest run; 0: no limit
    unsigned resend = 2;                       // how often the command is repeated
    size_t max_value = dt::decode::default_max_value; // bytes
    // Take a connection from any address whose first message has the command's number; one is
    // chosen when sequence is 0.
    bool any_address = false;
};

class Session {
public:
    // Both must outlive the session. Progress may share the printer's terminal.
    Session(Request request, Printer &printer, Progress &progress);

    // Returns when a whole run has arrived and is printed; throws Failure otherwise, after
    // everything that was decoded has been printed.
    void run();

private:
    Caller wait_for_device(Callers &callers, const Fd &command);
    void send_command(const Fd &command, uint16_t port);
    Caller wait_for_caller(Callers &callers, const Fd &command, Clock::time_point until);
    void check_refusal(const Fd &command);
    void receive(const Fd &connection);
    void wait(const Fd &connection, short events) const;
    void take(const Fd &connection, std::span<const uint8_t> bytes);
    void check_number(uint32_t sequence);
    void acknowledge(const Fd &connection);
    void end_of_stream(int error);
    [[noreturn]] void report_break(const std::string &cause) const;
    [[noreturn]] void report_silence() const;
    [[noreturn]] void report_late(const std::string &cause, Clock::duration limit) const;

    Request request_;
    Printer &printer_;
    Progress &progress_;
    sockaddr_in device_{};
    dt::decode::Decoder decoder_;
    uint64_t acknowledged_ = 0;                             // messages
    Clock::time_point deadline_ = Clock::time_point::max(); // of the run
    Clock::time_point due_{};                               // of the message that is coming
};

} // namespace dtctl
