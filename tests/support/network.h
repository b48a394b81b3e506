// The network as the test wants it: the program's own socket calls, which the library uses instead
// of libc's. They record, fail on request, and otherwise do the real thing, unless the whole
// network is simulated: then nothing leaves the process and the peer is what the test says.
#pragma once

#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <ostream>
#include <stdint.h>
#include <string>
#include <vector>

struct Datagram {
    std::string address; // the other side's
    int port;
    std::string bytes;
    bool broadcast = false; // the socket was allowed to when this was sent

    bool operator==(const Datagram &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Datagram &datagram) {
        return out << datagram.address << ':' << datagram.port << " \"" << datagram.bytes << '"'
                   << (datagram.broadcast ? " broadcast" : "");
    }
};

struct Network {
    bool simulated = false;
    std::vector<Datagram> sent;         // also what the system then refused
    std::vector<Datagram> bound;        // addresses and ports
    int connected = -1;                 // the descriptor last connected
    std::vector<int> waits;             // time-outs, milliseconds
    std::deque<Datagram> replies;       // simulated: what arrives, oldest first
    std::map<std::string, int> failing; // call: the errno it fails with
    size_t longest_send = SIZE_MAX;     // what a send takes at most
    std::function<void()> peer = [] {}; // has its turn at the start of every wait
};

extern Network network;

// Moves the process into a network of its own, which has a loopback that carries broadcasts and
// one more address, 10.1.1.1. Returns why that is not possible, or nothing.
std::string enter_private_network();
