// Answers built by hand, and a function to send a packet.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

#include "support/wire.h"

// A host's answer; an empty address or name leaves the field out.
inline std::string Answer(uint32_t ulPktType, const std::string &name, const std::string &address,
                          const std::string &ident, uint32_t ulField49 = 300) {
    std::string more = Number(0x48, 7) + Number(0x49, ulField49);
    if (!name.empty()) more += Field(0x11, name);
    if (!address.empty()) {
        const in_addr_t ip = inet_addr(address.c_str());
        more += Field(0x12, std::string(reinterpret_cast<const char *>(&ip), sizeof ip));
    }
    return Basic(ulPktType) + (ident.empty() ? more : more + Field(0x19, ident));
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
