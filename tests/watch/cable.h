// A veth pair for tests in a sandbox: one end is an interface of the machine, the test sends from the other
// with any address. Also handles that close at the end of their scope.
#pragma once

#include <qiven/watch.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/sandbox.h"

struct Cable {
    std::string name;
    int fd;
    int iFar;

    Cable(const std::string &interface, const std::string &address) : name(interface) {
        using sandbox::Run;
        Run("ip link add " + name + " type veth peer name w-" + name);
        if (!address.empty()) Run("ip address add " + address + " brd + dev " + name);
        Run("ip link set " + name + " up; ip link set w-" + name + " up");
        // The kernel reports it a moment later.
        while (Run("ip link show " + name).find("state UP") == std::string::npos)
            usleep(1000);
        fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        iFar = static_cast<int>(if_nametoindex(("w-" + name).c_str()));
    }
    ~Cable() { close(fd); }
    Cable(const Cable &) = delete;
    Cable &operator=(const Cable &) = delete;

    // As a broadcast or, if blFrame is not set, in a frame addressed to our end only.
    void Send(const std::string &payload, const std::string &from, const std::string &to = "255.255.255.255",
              bool blFrame = true, uint16_t usPort = 5000) const {
        iphdr ip{};
        udphdr udp{};
        ip.version = 4;
        ip.ihl = 5;
        ip.ttl = 64;
        ip.protocol = IPPROTO_UDP;
        ip.saddr = inet_addr(from.c_str());
        ip.daddr = inet_addr(to.c_str());
        ip.tot_len = htons(static_cast<uint16_t>(sizeof ip + sizeof udp + payload.size()));
        uint32_t ulSum = 0;
        uint16_t rgWord[sizeof ip / 2];
        memcpy(rgWord, &ip, sizeof ip);
        for (const uint16_t us : rgWord)
            ulSum += us;
        ulSum = (ulSum & 0xFFFF) + (ulSum >> 16);
        ip.check = static_cast<uint16_t>(~(ulSum + (ulSum >> 16)));
        udp.source = htons(usPort);
        udp.dest = htons(QIVEN_PORT);
        udp.len = htons(static_cast<uint16_t>(sizeof udp + payload.size()));
        const std::string packet = std::string(reinterpret_cast<const char *>(&ip), sizeof ip) +
                                   std::string(reinterpret_cast<const char *>(&udp), sizeof udp) + payload;
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_IP);
        address.sll_ifindex = iFar;
        address.sll_halen = ETH_ALEN;
        if (blFrame)
            memset(address.sll_addr, 0xFF, ETH_ALEN);
        else
            sscanf(sandbox::ReadFile("/sys/class/net/" + name + "/address").c_str(),
                   "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &address.sll_addr[0], &address.sll_addr[1],
                   &address.sll_addr[2], &address.sll_addr[3], &address.sll_addr[4], &address.sll_addr[5]);
        while (sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&address),
                      sizeof address) < 0) {
            if (errno != ENOBUFS) throw std::runtime_error("cannot send by the cable");
            usleep(100);
        }
    }
};

// Skip the far ends of veth pairs.
inline int NotFarEnds(const QIVEN_INTERFACE *pInterface, void * /*pvUser*/) {
    return strncmp(pInterface->szIfName, "w-", 2) == 0 ? 0 : 1;
}

inline bool WaitReadable(int fd, int ms) {
    pollfd readable{fd, POLLIN, 0};
    return poll(&readable, 1, ms) > 0;
}

inline void EnterMachine() {
    sandbox::Enter();
    for (const char *szScope : {"all", "default"})
        sandbox::WriteFile(std::string("/proc/sys/net/ipv4/conf/") + szScope + "/rp_filter", "0");
}

template <class Counts>
QIVEN_COUNTS CountsBy(Counts pfnCounts) {
    QIVEN_COUNTS counts{};
    counts.cbSize = sizeof counts;
    EXPECT_EQ(0, pfnCounts(&counts));
    return counts;
}
