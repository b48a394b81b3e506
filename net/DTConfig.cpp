#include "net/DTConfig.h"

#include "base/deadline.h"
#include "base/text.h"
#include "net/DTSock.h"
#include "platform/vrk.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

namespace {

constexpr int32_t client_port = 8998;
constexpr uint32_t server_port = 8999;
constexpr int32_t longest_wait = 1000; // milliseconds
constexpr int most_late = 1024;        // datagrams that are passed over before a request

// Who is asked: a fixed server, or everybody at first and then whoever answered last.
char _svrAddr[20] = DTSOCK_BROADCAST;
uint32_t _svrPort = server_port;
bool _fixed;

int32_t _fd = -1;
int32_t _has_send; // the first lookup has been tried
char _buffer[1000];

constexpr uint32_t longest_answer = sizeof _buffer - 1;

static_assert(sizeof _svrAddr >= DTSOCK_ADDRESS_SIZE);

bool has_server() { return strcmp(_svrAddr, DTSOCK_BROADCAST) != 0; }

// Everybody is asked once: without an answer to that there is no server.
bool may_ask() {
    if (_has_send && !has_server()) return false;
    _has_send = 1;
    if (_fd < 0) _fd = DTSock_UDP_Create("0.0.0.0", client_port);
    return _fd >= 0;
}

// Puts the request into the buffer. Its length without the terminator, which must fit too; 0 for
// what cannot be asked.
uint32_t build_request(const char *group, const char *key, const char *fallback) {
    if (!group || !key) return 0;
    const int length = snprintf(_buffer, sizeof _buffer, "=>config %s %s %s", group, key, fallback);
    return length > 0 && length < int{sizeof _buffer} ? static_cast<uint32_t>(length) : 0;
}

// What lies in the socket before the request has been sent answers none. A flood of it ends here.
void forget_late_answers() {
    char byte;
    for (int i = 0; i < most_late && recv(_fd, &byte, 1, MSG_DONTWAIT) >= 0; ++i) {
    }
}

// A signal is no answer: the request has gone out, and what is left of the time is waited for. What
// others than a fixed server send is passed over.
int32_t ask(uint32_t length) {
    const int32_t port = static_cast<int32_t>(_svrPort);
    if (DTSock_UDP_SendMessage(_fd, _svrAddr, port, _buffer, length) < 0) return -1;
    const dt::Deadline deadline(longest_wait);
    char sender[sizeof _svrAddr] = "";
    uint32_t sender_port;
    int32_t received;
    do {
        if (!deadline.wait(_fd, POLLIN)) return 0;
        received = DTSock_UDP_RecvMessage(_fd, sender, &sender_port, _buffer, longest_answer);
        if (received < 0) return -1;
    } while (_fixed && strcmp(sender, _svrAddr) != 0);
    if (_fixed) return received;
    memcpy(_svrAddr, sender, sizeof _svrAddr);
    _svrPort = sender_port;
    return received;
}

// The bytes of the answer, now in the buffer and terminated; 0 for none in time, -1 for a failure.
int32_t DTConfig_Get(const char *group, const char *key, const char *fallback) {
    const uint32_t length = build_request(group, key, fallback);
    if (length == 0 || !may_ask()) return -1;
    forget_late_answers();
    return ask(length);
}

} // namespace

int DTConfig_SetServer(const char *address, int32_t port) {
    in_addr parsed;
    if (address && (inet_pton(AF_INET, address, &parsed) != 1 || port <= 0 || port > UINT16_MAX))
        return 0;
    _fixed = address != nullptr;
    _has_send = 0;
    _svrPort = _fixed ? static_cast<uint32_t>(port) : server_port;
    dt::copy_text(_svrAddr, _fixed ? address : DTSOCK_BROADCAST);
    return 1;
}

int DTConfig_GetString(const char *group, const char *key, const char *fallback, char *value) {
    if (!value) return 1;
    if (!fallback) fallback = "";
    const char *text = DTConfig_Get(group, key, fallback) > 0 ? _buffer : fallback;
    memmove(value, text, strlen(text) + 1);
    return 1;
}

int32_t DTConfig_GetInt(const char *group, const char *key, int32_t fallback) {
    char text[100];
    TMB_snprintf(text, sizeof text, "%d", static_cast<int>(fallback));
    if (DTConfig_Get(group, key, text) <= 0) return fallback;
    return static_cast<int32_t>(strtoll(_buffer, nullptr, 0));
}

uint32_t DTConfig_GetUInt(const char *group, const char *key, uint32_t fallback) {
    return static_cast<uint32_t>(DTConfig_GetInt(group, key, static_cast<int32_t>(fallback)));
}
