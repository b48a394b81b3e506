#include "collect/collect_client.h"

#include "base/bytes.h"
#include "base/deadline.h"
#include "base/descriptor.h"
#include "base/endpoint.h"
#include "collect/connection.h"
#include "foundation/DTMem.h"
#include "foundation/DTTime.h"

#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>
#ifndef SIOCGSTAMP // some C libraries have it in sys/ioctl.h
#include <linux/sockios.h>
#endif

namespace {

constexpr int32_t header_size = 12;
constexpr int32_t payload_size = 1024;
constexpr uint32_t rest = 100; // milliseconds, after a receive that failed

constexpr uint8_t complete = 0x80; // the frame ends its value
enum Kind : uint8_t { kind_int = 1, kind_long, kind_string, kind_buffer };

constexpr int32_t frame_header = 13; // tag, index, section and key
constexpr int32_t int_frame = frame_header + 4;
constexpr int32_t long_frame = frame_header + 8;
constexpr int32_t piece_header = frame_header + 2;
constexpr int32_t least_piece = piece_header + 10;

struct Command {
    uint32_t length;
    uint32_t command;
    int32_t sequence;
    uint32_t port;
};
static_assert(sizeof(Command) == 16, "as on the wire");

uint8_t *l_buffer;
int32_t l_bufPos;
uint32_t _sequence;

// The only ones whose commands count, unless there are none.
in_addr_t _allowed[COLLECT_MAX_ALLOWED];
int32_t _allowed_count;

bool is_listed(in_addr_t address) {
    for (int32_t i = 0; i < _allowed_count; ++i)
        if (_allowed[i] == address) return true;
    return false;
}

bool is_valid(const Command &datagram, ssize_t received, in_addr_t sender) {
    return datagram.length == static_cast<size_t>(received) && datagram.command <= 3 &&
           (_allowed_count == 0 || is_listed(sender));
}

bool _silent;
int32_t _max_age;    // milliseconds; 0 or below: none
int64_t _waited_for; // when no command was there last: none that is has come before

ssize_t receive(int32_t socket, Command *datagram, sockaddr_in *sender, int flags) {
    socklen_t size = sizeof *sender;
    return recvfrom(socket, datagram, sizeof *datagram, flags, reinterpret_cast<sockaddr *>(sender),
                    &size);
}

// Who asks for an arrival once has them kept by the system from then on. One that was not kept is
// now.
bool last_arrival(int32_t socket, timeval *arrival) {
    return ioctl(socket, SIOCGSTAMP, arrival) == 0;
}

void keep_arrivals(int32_t socket) {
    timeval none;
    last_arrival(socket, &none);
}

// Of the datagram that was read last, by a clock that may be set and whose seconds may wrap.
int64_t age_of_last(int32_t socket) {
    timeval arrival, now;
    if (!last_arrival(socket, &arrival) || gettimeofday(&now, nullptr) != 0) return 0;
    const uint32_t seconds =
        static_cast<uint32_t>(now.tv_sec) - static_cast<uint32_t>(arrival.tv_sec);
    return int64_t{static_cast<int32_t>(seconds)} * 1000 + (now.tv_usec - arrival.tv_usec) / 1000;
}

// A command that is waited for is not old; one that lay there is when both clocks say so.
ssize_t receive_dated(int32_t socket, Command *datagram, sockaddr_in *sender, bool *old) {
    keep_arrivals(socket);
    const ssize_t there = receive(socket, datagram, sender, MSG_DONTWAIT);
    if (there >= 0) {
        *old = age_of_last(socket) > _max_age && dt::monotonic() - _waited_for > _max_age;
        return there;
    }
    const ssize_t received = receive(socket, datagram, sender, 0);
    _waited_for = dt::monotonic();
    return received;
}

bool make_buffer() {
    void *memory = DTMem_Malloc(COLLECT_OWNER_ID, header_size + payload_size);
    l_buffer = static_cast<uint8_t *>(memory);
    if (!l_buffer) return false;
    memset(l_buffer, 0, header_size);
    l_bufPos = 0;
    return true;
}

int32_t room() { return payload_size - l_bufPos; }

dt::ByteWriter payload_end() { return dt::ByteWriter(l_buffer + header_size + l_bufPos); }

void append(const void *bytes, uint32_t count) {
    payload_end().put(bytes, count);
    l_bufPos += static_cast<int32_t>(count);
}

bool has_room(size_t count) { return l_buffer && count <= static_cast<size_t>(room()); }

// Sends the message when it has no room for the least that the next frame needs.
void ensure_room(int32_t least) {
    if (room() < least) CollectClient_Flush(0);
}

dt::ByteWriter begin_frame(uint8_t tag, uint32_t index, uint32_t section, uint32_t key) {
    return payload_end().put(tag).put(index).put(section).put(key);
}

int32_t collect_piece(Kind kind, uint32_t index, uint32_t section, uint32_t key, const void *bytes,
                      int32_t length) {
    ensure_room(least_piece);
    const int32_t space = room() - piece_header;
    const bool last = length <= space;
    const int32_t size = last ? length : space;
    const uint8_t tag = last ? kind | complete : kind;
    begin_frame(tag, index, section, key)
        .put(static_cast<uint16_t>(size))
        .put(bytes, static_cast<size_t>(size));
    l_bufPos += piece_header + size;
    return size;
}

} // namespace

int32_t CollectClient_Init(void) {
    const int32_t fd = dt::kept_apart(socket(AF_INET, SOCK_DGRAM, 0));
    if (fd < 0) return -1;
    if (_max_age > 0) keep_arrivals(fd);
    _waited_for = dt::monotonic();
    const sockaddr_in any = dt::endpoint(INADDR_ANY, COLLECT_COMMAND_PORT);
    if (bind(fd, dt::generic(&any), sizeof any) == 0) return fd;
    close(fd);
    return -1;
}

int32_t CollectClient_WaitFor(int32_t socket, uint8_t, uint8_t, uint32_t *command, char *address,
                              uint32_t *port) {
    if (socket < 0 || !command || !address || !port) return -1;
    Command datagram = {};
    sockaddr_in sender = {};
    bool old = false;
    const ssize_t received = _max_age > 0 ? receive_dated(socket, &datagram, &sender, &old)
                                          : receive(socket, &datagram, &sender, 0);
    if (!_silent) printf("size=%ld\n", static_cast<long>(received));
    if (received < 0) DTTime_Sleep(rest); // it may fail at once every time
    if (received < 0 || old || !is_valid(datagram, received, sender.sin_addr.s_addr)) return -1;
    *command = datagram.command;
    strcpy(address, inet_ntoa(sender.sin_addr));
    *port = datagram.port;
    return datagram.sequence;
}

int32_t CollectClient_Allow(const char *address) {
    if (!address) {
        _allowed_count = 0;
        return 1;
    }
    in_addr parsed;
    if (inet_pton(AF_INET, address, &parsed) != 1) return 0;
    if (is_listed(parsed.s_addr)) return 1;
    if (_allowed_count == COLLECT_MAX_ALLOWED) return 0;
    _allowed[_allowed_count++] = parsed.s_addr;
    return 1;
}

void CollectClient_SetMaxAge(int32_t milliseconds) { _max_age = milliseconds; }

void CollectClient_SetTrace(int on) { _silent = on == 0; }

void CollectClient_SetTimeout(int32_t connect_ms, int32_t send_ms, int32_t acknowledgement_ms) {
    dt::connection_limit({connect_ms, send_ms, acknowledgement_ms});
}

int32_t CollectClient_Start(const char *address, int32_t port) {
    dt::values_open = dt::connection_open(address, port);
    if (dt::values_open)
        dt::values_open = l_buffer || make_buffer();
    else
        puts("connect error.");
    return dt::values_open;
}

void CollectClient_End(void) {
    dt::values_open = false;
    if (!l_buffer) return;
    CollectClient_Flush(0);
    dt::connection_close();
    DTMem_Free(COLLECT_OWNER_ID, l_buffer);
    l_buffer = nullptr;
    l_bufPos = 0;
}

void CollectClient_SetType(uint32_t type) {
    if (l_buffer) dt::store(l_buffer + 4, type);
}

void CollectClient_AppendBuffer(const void *bytes, uint32_t count) {
    if (bytes && has_room(count)) append(bytes, count);
}

void CollectClient_AppendInt(uint32_t value) {
    if (has_room(sizeof value)) append(&value, sizeof value);
}

void CollectClient_AppendString(const char *text) {
    if (!text) return;
    const size_t length = strlen(text);
    if (!has_room(2 + length)) return;
    const uint16_t stored = static_cast<uint16_t>(length);
    append(&stored, sizeof stored);
    append(text, stored);
}

int32_t CollectClient_Flush(int32_t sequence) {
    if (!l_buffer) return 0;
    const uint32_t length = static_cast<uint32_t>(header_size + l_bufPos);
    const uint32_t number = sequence != 0 ? static_cast<uint32_t>(sequence) : ++_sequence;
    dt::store(l_buffer, length);
    dt::store(l_buffer + 8, number);
    l_bufPos = 0;
    if (!dt::connection_send(l_buffer, length)) {
        puts("send error.");
        return 0;
    }
    if (!dt::connection_receive_acknowledgement()) {
        puts("recv error.");
        return 0;
    }
    return 1;
}

int32_t CollectClient_CollectInt(uint32_t index, uint32_t section, uint32_t key, uint32_t value) {
    if (!l_buffer) return 0;
    ensure_room(int_frame);
    begin_frame(kind_int | complete, index, section, key).put(value);
    l_bufPos += int_frame;
    return int_frame;
}

void CollectClient_CollectLong(uint32_t index, uint32_t section, uint32_t key, uint64_t value) {
    if (!l_buffer) return;
    ensure_room(long_frame);
    begin_frame(kind_long | complete, index, section, key).put(value);
    l_bufPos += long_frame;
}

int32_t CollectClient_CollectString(uint32_t index, uint32_t section, uint32_t key,
                                    const char *text, int32_t length) {
    if (!l_buffer || !text || length < 0) return 0;
    if (length == 0) length = static_cast<int32_t>(strnlen(text, INT32_MAX));
    return collect_piece(kind_string, index, section, key, text, length);
}

int32_t CollectClient_CollectBuffer(uint32_t index, uint32_t section, uint32_t key,
                                    const void *bytes, int32_t length) {
    if (!l_buffer || !bytes || length <= 0) return 0;
    return collect_piece(kind_buffer, index, section, key, bytes, length);
}
