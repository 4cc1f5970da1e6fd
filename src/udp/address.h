// Socket addresses from connection records.
#pragma once

#include <qiven/udp.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

namespace qiven::udp {

// Room name in messages.
inline constexpr char kRoom[] = "udp";

inline sockaddr_in MakeAddress(uint32_t ulIP, uint16_t usPort) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = QIVENSocketHtons(usPort);
    address.sin_addr.s_addr = ulIP;
    return address;
}

// Address and port of a connection record; false when its text is no dotted address.
inline bool ToAddress(const QIVEN_CONN &conn, sockaddr_in &address) {
    in_addr ip{};
    if (memchr(conn.szAddr, '\0', sizeof conn.szAddr) == nullptr || inet_aton(conn.szAddr, &ip) == 0)
        return false;
    address = MakeAddress(ip.s_addr, conn.usPort);
    return true;
}

inline const sockaddr *Generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

inline bool EnableOption(int fd, int iOption) {
    const int iOn = 1;
    return setsockopt(fd, SOL_SOCKET, iOption, &iOn, sizeof iOn) == 0;
}

}  // namespace qiven::udp
