// IPv4 socket addresses.
#ifndef DT_BASE_ENDPOINT_H
#define DT_BASE_ENDPOINT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

namespace dt {

// The address in network order; the low 16 bits of the port count.
inline sockaddr_in endpoint(in_addr_t address, int32_t port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    result.sin_addr.s_addr = address;
    return result;
}

inline const sockaddr *generic(const sockaddr_in *address) {
    return reinterpret_cast<const sockaddr *>(address);
}

} // namespace dt

#endif
