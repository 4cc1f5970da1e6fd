// Checks the port, sends queries and listens, and explains what happened to them.
#include <qiven/packet.h>
#include <qiven/udp.h>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>

#include "doctor/checks.h"
#include "doctor/firewall.h"
#include "doctor/port_holder.h"
#include "fields.h"
#include "packet_walk.h"
#include "text.h"

namespace qiven::doctor {

namespace {

using std::chrono::steady_clock;

struct Socket {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    Socket() = default;
    ~Socket() {
        if (fd != -1) close(fd);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    // Shares its port and may broadcast, as the sockets of the library. Returns 0, or the error.
    int Bind(uint32_t ulIP, uint16_t usPort) const {
        const int iOn = 1;
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(usPort);
        local.sin_addr.s_addr = ulIP;
        if (fd == -1 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn) != 0 ||
            setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof iOn) != 0)
            return errno;
        return bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0 ? 0 : errno;
    }
};

// The packets that arrived while listening.
struct Arrivals {
    std::set<uint32_t> own;  // addresses whose query came back
    size_t nAnswers = 0;
    size_t nQueries = 0;
    size_t nSealed = 0;
    size_t nJunk = 0;
    int iError = 0;  // the last failure to listen
    std::string sealedFrom;
    std::string junkFrom;
    std::string junkReason;
};

// 0, or the error.
int SendQuery(const QIVEN_NETIF &netIf) {
    const Socket sock;
    if (const int iError = sock.Bind(netIf.ulIP, QIVEN_SOURCE_PORT); iError != 0) return iError;
    sockaddr_in broadcast{};
    broadcast.sin_family = AF_INET;
    broadcast.sin_port = htons(QIVEN_PORT);
    broadcast.sin_addr.s_addr = INADDR_BROADCAST;
    const ssize_t cbSent = sendto(sock.fd, stQIVENBroadCastVQX20, sizeof stQIVENBroadCastVQX20, 0,
                                  reinterpret_cast<const sockaddr *>(&broadcast), sizeof broadcast);
    return cbSent == sizeof stQIVENBroadCastVQX20 ? 0 : errno;
}

void Count(Arrivals &arrivals, const std::vector<QIVEN_NETIF> &usable, uint32_t ulFrom,
           std::span<const unsigned char> rgbPacket) {
    const bool blOwnAddress = std::any_of(
        usable.begin(), usable.end(), [ulFrom](const QIVEN_NETIF &netIf) { return netIf.ulIP == ulFrom; });
    const bool blQuery = std::equal(rgbPacket.begin(), rgbPacket.end(), std::begin(stQIVENBroadCastVQX20),
                                    std::end(stQIVENBroadCastVQX20));
    if (blOwnAddress && blQuery) {
        arrivals.own.insert(ulFrom);
        return;
    }
    const packet_walk::PacketWalk walk = packet_walk::Walk(rgbPacket);
    if (walk.verdict == packet_walk::Verdict::kSealed) {
        if (arrivals.nSealed++ == 0) arrivals.sealedFrom = fields::Dotted(ulFrom);
    } else if (walk.verdict == packet_walk::Verdict::kRefused) {
        if (arrivals.nJunk++ != 0) return;
        arrivals.junkFrom = fields::Dotted(ulFrom);
        arrivals.junkReason = walk.reason;
    } else {
        nasinfo record;
        QIVENPacketRead(nullptr, rgbPacket.data(), static_cast<int>(rgbPacket.size()), &record);
        ++(fields::IsAnswer(record) ? arrivals.nAnswers : arrivals.nQueries);
    }
}

void Listen(int fd, const std::vector<QIVEN_NETIF> &usable, size_t nExpected, steady_clock::time_point end,
            bool blAll, Arrivals &arrivals) {
    std::array<unsigned char, QIVEN_PACKET_MAX> rgb;
    while (blAll || arrivals.own.size() < nExpected) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        pollfd readable{fd, POLLIN, 0};
        if (left <= 0) return;
        const int nReady = poll(&readable, 1, static_cast<int>(left));
        if (nReady < 0 && errno != EINTR) arrivals.iError = errno;
        if (nReady <= 0) continue;
        sockaddr_in from{};
        socklen_t cbFrom = sizeof from;
        const ssize_t cb =
            recvfrom(fd, rgb.data(), rgb.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &cbFrom);
        if (cb >= 0)
            Count(arrivals, usable, from.sin_addr.s_addr, {rgb.data(), static_cast<size_t>(cb)});
        else if (errno != EINTR && errno != EAGAIN)
            arrivals.iError = errno;
    }
}

std::string HeldBy(uint16_t usPort) {
    const std::string holders = PortHolders(usPort);
    return holders.empty() ? std::string("an unknown process (try again as root)") : holders;
}

Check ExplainSend(const QIVEN_NETIF &netIf, int iError) {
    const std::string name = text::Escape(netIf.szIfName);
    Check check{"send", Result::kFault, {}, {}};
    if (iError == EPERM) {
        const auto rule = FindDrop(Direction::kOut);
        check.name = "firewall";
        check.text = fmt::format("a firewall on this machine refuses the query on {}: {}", name,
                                 rule ? *rule : "its rule cannot be read");
        check.remedy = fmt::format("allow UDP to port {} on the way out", QIVEN_PORT);
    } else if (iError == EADDRINUSE) {
        check.text =
            fmt::format("source port {} is not shared by {}", QIVEN_SOURCE_PORT, HeldBy(QIVEN_SOURCE_PORT));
        check.remedy = "stop that program";
    } else {
        check.text = fmt::format("the query cannot be sent on {}: {}", name, strerror(iError));
        check.remedy = "check the routes (\"ip route\") and the state of the interface (\"ip link\")";
    }
    return check;
}

Check ExplainSilence(const std::string &names) {
    for (const Direction direction : {Direction::kIn, Direction::kOut}) {
        const auto rule = FindDrop(direction);
        const char *szWay = direction == Direction::kIn ? "in" : "out";
        if (!rule) continue;
        return {"firewall", Result::kFault,
                fmt::format("a firewall on this machine drops packets on the way {} on {}: {}", szWay, names,
                            *rule),
                fmt::format("allow UDP to port {} on the way {}", QIVEN_PORT, szWay)};
    }
    return {"loopback", Result::kFault,
            fmt::format("the query sent on {} does not come back: something on this machine drops it", names),
            fmt::format("look for a firewall or traffic filter, and allow UDP to port {}", QIVEN_PORT)};
}

Check JudgeArrivals(const Arrivals &arrivals) {
    Check check{"arrivals", Result::kOk, {}, {}};
    if (arrivals.nAnswers != 0) {
        check.text = fmt::format("{} answers of hosts arrived", arrivals.nAnswers);
    } else if (arrivals.nSealed != 0) {
        check.result = Result::kFault;
        check.text = fmt::format("{} sealed packets for other searchers arrived, the first from {}",
                                 arrivals.nSealed, arrivals.sealedFrom);
        check.remedy =
            "the hosts answer another searcher: search again with \"qiven find\", which sends its key, "
            "and check that nothing drops its query on the way to them";
        return check;
    } else if (arrivals.nJunk != 0) {
        check.result = Result::kFault;
        check.text = fmt::format("{} packets that cannot be decoded arrived, the first from {} ({})",
                                 arrivals.nJunk, arrivals.junkFrom, arrivals.junkReason);
        check.remedy = fmt::format(
            "find the program there that sends to UDP port {}; \"qiven decode --pcap\" shows its packets",
            QIVEN_PORT);
        return check;
    } else {
        check.text = "no host answered";
    }
    if (arrivals.nQueries != 0)
        check.text += fmt::format(", {} queries of other searchers", arrivals.nQueries);
    if (arrivals.nJunk + arrivals.nSealed == 0) return check;
    check.result = Result::kNote;
    check.text += fmt::format(", {} packets sealed for other searchers, {} that cannot be decoded",
                              arrivals.nSealed, arrivals.nJunk);
    return check;
}

void Skip(std::vector<Check> &checks, const char *szName, std::string reason) {
    checks.push_back({szName, Result::kSkipped, std::move(reason), {}});
}

}  // namespace

Check CheckPort() {
    const Socket sock;
    const int iError = sock.Bind(INADDR_ANY, QIVEN_PORT);
    if (iError == 0) return {"port", Result::kOk, fmt::format("UDP port {} is available", QIVEN_PORT), {}};
    if (iError != EADDRINUSE)
        return {"port", Result::kFault,
                fmt::format("UDP port {} cannot be bound: {}", QIVEN_PORT, strerror(iError)),
                "look for a restriction of this process (a sandbox, a security module)"};
    return {"port", Result::kFault,
            fmt::format("UDP port {} is not shared by {}", QIVEN_PORT, HeldBy(QIVEN_PORT)),
            "stop that program, or make it set SO_REUSEADDR"};
}

size_t CheckTraffic(const std::vector<QIVEN_NETIF> &usable, std::chrono::milliseconds listen, bool blAll,
                    std::vector<Check> &checks) {
    if (usable.empty()) {
        Skip(checks, "send", "needs a usable interface");
        return 0;
    }
    const Socket listener;
    const int iListenError = listener.Bind(INADDR_ANY, QIVEN_PORT);
    std::vector<const QIVEN_NETIF *> sent;
    for (const QIVEN_NETIF &netIf : usable) {
        const int iError = SendQuery(netIf);
        if (iError == 0)
            sent.push_back(&netIf);
        else
            checks.push_back(ExplainSend(netIf, iError));
    }
    if (sent.size() == usable.size())
        checks.push_back({"send", Result::kOk, "the query is sent on every interface", {}});
    if (iListenError != 0) {
        Skip(
            checks, "loopback",
            fmt::format("needs UDP port {}, which is not available: {}", QIVEN_PORT, strerror(iListenError)));
        return 0;
    }

    Arrivals arrivals;
    Listen(listener.fd, usable, sent.size(), steady_clock::now() + listen, blAll, arrivals);
    std::string silent;
    for (const QIVEN_NETIF *pNetIf : sent)
        if (arrivals.own.count(pNetIf->ulIP) == 0)
            silent += (silent.empty() ? "" : ", ") + text::Escape(pNetIf->szIfName);
    if (!silent.empty() && arrivals.iError != 0)
        Skip(checks, "loopback", fmt::format("listening failed: {}", strerror(arrivals.iError)));
    else if (!silent.empty())
        checks.push_back(ExplainSilence(silent));
    else if (!sent.empty())
        checks.push_back({"loopback", Result::kOk, "the query comes back", {}});
    if (blAll) checks.push_back(JudgeArrivals(arrivals));
    return arrivals.nAnswers;
}

}  // namespace qiven::doctor
