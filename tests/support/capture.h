// Captures the UDP datagrams on an interface.
#pragma once

#include <arpa/inet.h>
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

struct Datagram {
    std::string address;  // of the sender
    int iPort;            // of the sender
    std::string to;       // "address:port"
    std::string payload;
};

class Capture {
  public:
    // Without a name, captures the traffic of all interfaces.
    explicit Capture(const std::string &device = "")
        : m_fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL))) {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(device.empty() ? 0 : if_nametoindex(device.c_str()));
        if (bind(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            throw std::runtime_error("no capture");
    }
    ~Capture() { close(m_fd); }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    // The datagrams since the last call; waits until none arrives for a moment.
    std::vector<Datagram> Take() const {
        constexpr int kMoment = 50;
        std::vector<Datagram> taken;
        std::string packet;
        for (pollfd readable{m_fd, POLLIN, 0}; poll(&readable, 1, kMoment) > 0;) {
            packet.resize(10'000);
            packet.resize(static_cast<size_t>(recv(m_fd, packet.data(), packet.size(), 0)));
            Append(taken, packet);
        }
        return taken;
    }

  private:
    static void Append(std::vector<Datagram> &taken, const std::string &packet) {
        iphdr ip{};
        udphdr udp{};
        if (packet.size() < sizeof ip + sizeof udp) return;
        memcpy(&ip, packet.data(), sizeof ip);
        memcpy(&udp, packet.data() + sizeof ip, sizeof udp);
        if (ip.version != 4 || ip.ihl != 5 || ip.protocol != IPPROTO_UDP) return;
        const std::string to = inet_ntoa({ip.daddr});
        taken.push_back({inet_ntoa({ip.saddr}), ntohs(udp.source), to + ":" + std::to_string(ntohs(udp.dest)),
                         packet.substr(sizeof ip + sizeof udp)});
    }
    int m_fd;
};
