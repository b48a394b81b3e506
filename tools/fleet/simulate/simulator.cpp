#include "fleet/simulate/simulator.h"

#include "decode/reader.h"
#include "decode/wire.h"
#include "host/failure.h"
#include "host/socket.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

constexpr uint32_t first_address = 0x7F010001; // 127.1.0.1
constexpr uint32_t broadcast = 0x7FFFFFFF;     // to all of them
constexpr size_t remembered = 64;              // tokens a device

sockaddr_in address(uint32_t ip, uint16_t port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_addr.s_addr = htonl(ip);
    made.sin_port = htons(port);
    return made;
}

void set(const dtctl::Fd &socket, int level, int option, int value) {
    if (::setsockopt(socket.get(), level, option, &value, sizeof value) != 0)
        throw dtctl::Failure(dtctl::Exit::failed, fmt::format("socket: {}", std::strerror(errno)));
}

// A socket that tells to which of the machine's addresses a datagram was sent.
dtctl::Fd command_socket(uint16_t port, bool shared) {
    dtctl::Fd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in any = address(INADDR_ANY, port);
    set(socket, IPPROTO_IP, IP_PKTINFO, 1);
    set(socket, SOL_SOCKET, SO_RCVBUF, 8 << 20); // the system makes less of it
    if (shared) set(socket, SOL_SOCKET, SO_REUSEPORT, 1);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr *>(&any), sizeof any) != 0)
        throw dtctl::Failure(dtctl::Exit::unreachable,
                             fmt::format("UDP port {}: {}", port, std::strerror(errno)));
    return socket;
}

// As many sockets under one port as hold a command to every device at once: the system spreads
// datagrams over them by their addresses. Whether the port is taken shows without sharing alone.
std::vector<dtctl::Fd> command_sockets(uint16_t port, uint32_t devices) {
    constexpr uint32_t share = 100; // of devices, which a buffer of the usual size surely holds
    constexpr uint32_t most = 256;
    port = dtctl::local_port(command_socket(port, false));
    std::vector<dtctl::Fd> sockets;
    for (uint32_t i = 0; i < std::min(most, 1 + devices / share); ++i)
        sockets.push_back(command_socket(port, true));
    return sockets;
}

struct Datagram {
    std::array<uint8_t, 16> bytes{};
    ssize_t size = -1;
    sockaddr_in from{};
    uint32_t to = 0; // host order
};

Datagram receive_datagram(int socket) {
    Datagram datagram;
    alignas(cmsghdr) char control[128];
    iovec area{datagram.bytes.data(), datagram.bytes.size()};
    msghdr message{};
    message.msg_name = &datagram.from;
    message.msg_namelen = sizeof datagram.from;
    message.msg_iov = &area;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    datagram.size = ::recvmsg(socket, &message, 0);
    for (cmsghdr *part = datagram.size < 0 ? nullptr : CMSG_FIRSTHDR(&message); part;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO) continue;
        in_pktinfo info{};
        std::memcpy(&info, CMSG_DATA(part), sizeof info);
        datagram.to = ntohl(info.ipi_addr.s_addr);
    }
    return datagram;
}

// The other side has closed it, which the loop may not have told yet.
bool is_closed(int socket) {
    char byte;
    const ssize_t count = ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno == ECONNRESET);
}

} // namespace

struct Simulator::Device {
    uint32_t turn = 0;
    std::deque<Command> commands; // the first is being served
    std::deque<uint32_t> tokens;  // that it has had
    dtctl::Fd socket;
    uint64_t number = 0; // in the loop
    std::vector<std::string> messages;
    size_t message = 0; // the one that is being sent,
    size_t sent = 0;    // and how much of it
    bool is_connected = false;
};

Simulator::Simulator(const SimulatorOptions &options, Loop &loop)
    : options_(options), loop_(loop), commands_(command_sockets(options.port, options.devices)),
      turns_(options.devices) {
    options_.port = dtctl::local_port(commands_.front());
    for (const dtctl::Fd &socket : commands_)
        numbers_.push_back(loop_.add(socket.get(), [this, &socket] { receive_commands(socket); }));
}

Simulator::~Simulator() {
    for (size_t i = 0; i < commands_.size(); ++i) loop_.remove(numbers_[i], commands_[i].get());
    for (const auto &[number, device] : devices_)
        if (device->socket) loop_.remove(device->number, device->socket.get());
}

std::string Simulator::address_of(uint32_t device) {
    const uint32_t ip = first_address + device;
    return fmt::format("{}.{}.{}.{}", ip >> 24, ip >> 16 & 255, ip >> 8 & 255, ip & 255);
}

std::string Simulator::inventory() const {
    std::string text;
    for (uint32_t i = 0; i < options_.devices; ++i)
        text += fmt::format("[[device]]\nname = \"sim{:06}\"\naddress = \"{}\"\nport = {}\n", i,
                            address_of(i), options_.port);
    return text;
}

Manner Simulator::manner_of(uint32_t device) const {
    if (options_.manners.empty()) return Manner::good;
    return options_.manners[device % options_.manners.size()];
}

void Simulator::receive_commands(const dtctl::Fd &socket) {
    for (;;) {
        const Datagram datagram = receive_datagram(socket.get());
        if (datagram.size < 0) return;
        dt::decode::Reader words{datagram.bytes, 0};
        const auto length = words.number<uint32_t>();
        const auto command = words.number<uint32_t>();
        const auto token = words.number<uint32_t>();
        const auto port = words.number<uint32_t>();
        if (length != datagram.size || command > 3) continue;
        sockaddr_in server = datagram.from;
        server.sin_port = htons(static_cast<uint16_t>(port));
        const bool to_all = datagram.to == broadcast;
        if (to_all && &socket != &commands_.front()) continue; // each socket has a copy
        const uint32_t first = to_all ? 0 : datagram.to - first_address;
        for (uint32_t i = first; i < (to_all ? options_.devices : first + 1); ++i)
            take_command(i, {server, token, command == 3});
    }
}

// As in a device's socket, commands wait until the run before them is over.
void Simulator::take_command(uint32_t number, const Command &command) {
    if (number >= options_.devices || manner_of(number) == Manner::dead) return;
    ++counts_.commands;
    auto &device = devices_[number];
    if (!device) device = std::make_unique<Device>();
    auto &known = device->tokens;
    const bool is_double = std::find(known.begin(), known.end(), command.token) != known.end();
    counts_.doubles += is_double;
    const bool overlaps = !is_double && !device->commands.empty() &&
                          !(device->is_connected && is_closed(device->socket.get()));
    counts_.overlaps += overlaps;
    if (options_.on_command)
        options_.on_command(number, ntohs(command.server.sin_port),
                            overlaps ? ntohs(device->commands.front().server.sin_port) : 0);
    known.push_back(command.token);
    if (known.size() > remembered) known.pop_front();
    device->commands.push_back(command);
    if (device->commands.size() == 1) schedule(number);
}

// What all of them share bears so many runs a second: the others wait.
void Simulator::schedule(uint32_t number) {
    if (options_.rate == 0) return begin(number);
    free_ = std::max(free_, now()) + Time(std::chrono::seconds(1)) / options_.rate;
    turns_.set(number, free_);
}

void Simulator::begin(uint32_t number) {
    Device &device = *devices_[number];
    const Command &command = device.commands.front();
    const Script script{number, device.turn++, options_.values, manner_of(number)};
    device.messages = messages_of(script, command.token, command.selftest);
    device.message = device.sent = 0;
    device.is_connected = false;
    device.socket = dtctl::Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // From its own address, so that no two of them run out of ports together.
    const sockaddr_in own = address(first_address + number, 0);
    const auto *server = reinterpret_cast<const sockaddr *>(&command.server);
    const int late = 1;
    (void)::setsockopt(device.socket.get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &late,
                       sizeof late);
    (void)::bind(device.socket.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own);
    const bool begun =
        device.socket && (::connect(device.socket.get(), server, sizeof command.server) == 0 ||
                          errno == EINPROGRESS);
    if (!begun) return finish(number, false);
    device.number = loop_.add(device.socket.get(), [this, number] { go_on(number); });
    loop_.watch(device.number, device.socket.get(), true, true);
}

// Something has come, or there is room: the first room says that the connection is made.
void Simulator::go_on(uint32_t number) {
    Device &device = *devices_[number];
    if (device.is_connected) return hear(number);
    int error = 0;
    socklen_t size = sizeof error;
    (void)::getsockopt(device.socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) return finish(number, false);
    device.is_connected = true;
    loop_.watch(device.number, device.socket.get(), true, false);
    send_some(number);
}

// An acknowledgement, or the end.
void Simulator::hear(uint32_t number) {
    Device &device = *devices_[number];
    char bytes[16];
    const ssize_t count = ::recv(device.socket.get(), bytes, sizeof bytes, 0);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) return finish(number, false);
    if (device.sent != device.messages[device.message].size()) return; // came unasked
    device.sent = 0;
    if (++device.message == device.messages.size()) return finish(number, true);
    const Manner manner = manner_of(number);
    if (manner == Manner::stuck && device.message == device.messages.size() / 2) return;
    if (manner == Manner::slow)
        turns_.set(number, now() + 10 * options_.pause);
    else
        send_some(number);
}

void Simulator::send_some(uint32_t number) {
    Device &device = *devices_[number];
    const std::string &message = device.messages[device.message];
    const bool trickles = manner_of(number) == Manner::trickle;
    const size_t size = trickles ? 1 : message.size() - device.sent;
    const ssize_t count =
        ::send(device.socket.get(), message.data() + device.sent, size, MSG_NOSIGNAL);
    if (count != static_cast<ssize_t>(size)) return finish(number, false);
    device.sent += size;
    if (device.sent < message.size()) turns_.set(number, now() + options_.pause);
}

void Simulator::pass() {
    size_t number;
    while (turns_.take(now(), number)) {
        const auto device = static_cast<uint32_t>(number);
        if (devices_[device]->socket)
            send_some(device);
        else
            begin(device);
    }
}

void Simulator::finish(uint32_t number, bool whole) {
    Device &device = *devices_[number];
    ++(whole ? counts_.runs : counts_.failed);
    turns_.clear(number);
    if (device.socket) loop_.remove(device.number, device.socket.get());
    device.socket = dtctl::Fd();
    device.messages = {};
    device.commands.pop_front();
    if (!device.commands.empty()) schedule(number);
}

} // namespace dtfleet
