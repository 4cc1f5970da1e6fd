// Packets put together by hand, and how to send one.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>

inline std::string Field(uint8_t id, const std::string &value) {
    return std::string{static_cast<char>(id), static_cast<char>(value.size())} + value;
}

inline std::string Number(uint8_t id, uint32_t ulValue) {
    std::string value;
    for (int i = 0; i < 4; ++i)
        value += static_cast<char>(ulValue >> (8 * i) & 0xFF);
    return Field(id, value);
}

// The header and the two fields that every packet needs, with more fields behind.
inline std::string Packet(uint32_t ulPktType, const std::string &more = "") {
    return "\x12\x34\x56\x78TAVO" + Number(0x01, ulPktType) + Number(0xA4, 0x01020000) + more;
}

// A host's answer; an empty address or name leaves the field out.
inline std::string Answer(uint32_t ulPktType, const std::string &name, const std::string &address,
                          const std::string &ident, uint32_t ulField49 = 300) {
    std::string more = Number(0x48, 7) + Number(0x49, ulField49);
    if (!name.empty()) more += Field(0x11, name);
    if (!address.empty()) {
        const in_addr_t ip = inet_addr(address.c_str());
        more += Field(0x12, std::string(reinterpret_cast<const char *>(&ip), sizeof ip));
    }
    return Packet(ulPktType, ident.empty() ? more : more + Field(0x19, ident));
}

inline void SendTo(const std::string &payload, uint16_t usPort = 9999) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(usPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const ssize_t cb =
        sendto(fd, payload.data(), payload.size(), 0, reinterpret_cast<sockaddr *>(&address), sizeof address);
    close(fd);
    if (cb != static_cast<ssize_t>(payload.size())) throw std::runtime_error("cannot send");
}
