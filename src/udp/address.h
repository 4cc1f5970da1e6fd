// Socket addresses and options.
#pragma once

#include <qiven/udp.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

namespace qiven::udp {

// The module name in messages.
inline constexpr char kModule[] = "udp";

inline sockaddr_in MakeAddress(uint32_t ulIP, uint16_t usPort) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = QIVENSocketHtons(usPort);
    address.sin_addr.s_addr = ulIP;
    return address;
}

// Converts address and port of a connection record; false if its text is not a dotted address.
inline bool ToAddress(const QIVEN_CONN &conn, sockaddr_in &address) {
    in_addr ip{};
    if (memchr(conn.szAddr, '\0', sizeof conn.szAddr) == nullptr || inet_aton(conn.szAddr, &ip) == 0)
        return false;
    address = MakeAddress(ip.s_addr, conn.usPort);
    return true;
}

// The type that the socket calls take.
inline const sockaddr *Generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

inline bool EnableOption(int fd, int iOption) {
    const int iOn = 1;
    return setsockopt(fd, SOL_SOCKET, iOption, &iOn, sizeof iOn) == 0;
}

}  // namespace qiven::udp
