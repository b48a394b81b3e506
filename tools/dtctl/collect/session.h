// One collection from one device: the server's side, from the command to the end of the run.
#pragma once

#include "decode/decoder.h"
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
    std::chrono::milliseconds timeout{10'000}; // longest silence
    unsigned resend = 2;                       // how often the command is repeated
};

class Session {
public:
    // Both must outlive the session. Progress may share the printer's terminal.
    Session(Request request, Printer &printer, Progress &progress);

    // Returns when a whole run has arrived and is printed; throws Failure otherwise, after
    // everything that was decoded has been printed.
    void run();

private:
    Fd wait_for_device(const Fd &listener, const Fd &command);
    void send_command(const Fd &command, uint16_t port);
    void check_refusal(const Fd &command);
    Fd take_connection(const Fd &listener);
    void receive(const Fd &connection);
    void take(const Fd &connection, std::span<const uint8_t> bytes);
    void check_number(uint32_t sequence);
    void acknowledge(const Fd &connection);
    void end_of_stream(int error);
    [[noreturn]] void report_break(const std::string &cause) const;
    [[noreturn]] void report_silence() const;

    Request request_;
    Printer &printer_;
    Progress &progress_;
    sockaddr_in device_{};
    dt::decode::Decoder decoder_;
    uint64_t acknowledged_ = 0; // messages
};

} // namespace dtctl
