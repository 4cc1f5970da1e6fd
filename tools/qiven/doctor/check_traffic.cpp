// Sends queries and listens, and explains what happened to them.
#include <qiven/packet.h>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "doctor/arrivals.h"
#include "doctor/checks.h"
#include "doctor/firewall.h"
#include "doctor/port_holder.h"
#include "output/text.h"

namespace qiven::doctor {

namespace {

using std::chrono::steady_clock;

// An interface that is used.
struct Sender {
    uint32_t ulIfIndex, ulIP;
    std::string name;
    int iResult;  // 0, or why the query could not be sent
};

std::vector<Sender> ListSenders(const Port &port) {
    std::vector<Sender> senders;
    ForEachInterface(port, [&senders](const QIVEN_INTERFACE &interface) {
        if (interface.ulState == QIVEN_INTERFACE_USED || interface.ulState == QIVEN_INTERFACE_FAILED)
            senders.push_back({interface.ulIfIndex, interface.rgAddress[0].ulIP, interface.szIfName,
                               interface.ulState == QIVEN_INTERFACE_FAILED ? interface.iResult : 0});
    });
    return senders;
}

// The same as the first library's own. Returns the result of the endpoint.
int SendQuery(const Port &port) {
    nasinfo record{};
    record.ulPktType = QIVEN_PKT_QUERY;
    record.ulFieldA4 = QIVEN_FIELD_A4_VQX20;
    QIVEN_SEND request{};
    request.pnasInfo = &record;
    QIVENSendPktIDAdd(nullptr, &request, 0x01U, 0xA4U, 0U);
    return QIVENEndpointSend(port.endpoint.get(), &request, nullptr);
}

// 0, or the last error.
int Listen(const Port &port, size_t nExpected, steady_clock::time_point end, bool blAll, Arrivals &arrivals) {
    int iError = 0;
    while (blAll || arrivals.own.size() < nExpected) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        if (left <= 0) break;
        pollfd readable{QIVENEndpointFd(port.endpoint.get()), POLLIN, 0};
        const int nReady = poll(&readable, 1, static_cast<int>(left));
        if (nReady < 0 && errno != EINTR) iError = errno;
        const QIVEN_RECEIVED *pReceived = nullptr;
        while (nReady > 0 && steady_clock::now() < end &&
               (pReceived = QIVENEndpointReceive(port.endpoint.get())) != nullptr)
            Count(arrivals, *pReceived);
    }
    return iError;
}

Datagram Looped(const Sender &sender, Direction direction) {
    return {direction, sender.name, ntohl(sender.ulIP)};
}

Check ExplainSend(const Sender &sender) {
    const std::string name = text::Escape(sender.name);
    if (sender.iResult != -EPERM)
        return {"send", Result::kFault,
                fmt::format("the query cannot be sent on {}: {}", name, QIVENWatchError(sender.iResult)),
                "check the routes (\"ip route\") and the state of the interface (\"ip link\")"};
    const Finding finding = FindDrop(Looped(sender, Direction::kOut));
    return {"firewall", Result::kFault,
            fmt::format("a firewall on this machine refuses the query on {}: {}", name,
                        finding.rule ? *finding.rule : "its rule cannot be read"),
            fmt::format("allow UDP to port {} on the way out", QIVEN_PORT)};
}

Check ExplainSilence(const Sender &sender, const std::string &names) {
    bool blRead = true;
    for (const Direction direction : {Direction::kIn, Direction::kOut}) {
        const Finding finding = FindDrop(Looped(sender, direction));
        const char *szWay = direction == Direction::kIn ? "in" : "out";
        blRead = blRead && finding.blRead;
        if (!finding.rule) continue;
        return {"firewall", Result::kFault,
                fmt::format("a firewall on this machine drops packets on the way {} on {}: {}", szWay, names,
                            *finding.rule),
                fmt::format("allow UDP to port {} on the way {}", QIVEN_PORT, szWay)};
    }
    return {"loopback", Result::kFault,
            fmt::format("the query sent on {} does not come back: something on this machine drops it{}",
                        names, blRead ? "" : " (its firewall could not be checked)"),
            fmt::format("look for a firewall or traffic filter, and allow UDP to port {}", QIVEN_PORT)};
}

// Adds what there is to say of sending, and leaves those that have sent.
void JudgeSending(int iResult, std::vector<Sender> &senders, std::vector<Check> &checks) {
    const size_t nSenders = senders.size();
    std::erase_if(senders, [&checks](const Sender &sender) {
        if (sender.iResult != 0) checks.push_back(ExplainSend(sender));
        return sender.iResult != 0;
    });
    if (senders.size() < nSenders) return;
    if (iResult < 0) {  // before it came to any interface
        checks.push_back({"send", Result::kFault,
                          fmt::format("the query cannot be sent: {}", QIVENWatchError(iResult)),
                          "look for a restriction of this process (a sandbox, a security module)"});
        senders.clear();
        return;
    }
    Check check{"send", Result::kOk, "the query is sent on every interface", {}};
    if (IsHeldAlone(QIVEN_SOURCE_PORT)) {
        check.result = Result::kNote;
        check.text += fmt::format(", but not from port {}, which {} does not share", QIVEN_SOURCE_PORT,
                                  HolderOf(QIVEN_SOURCE_PORT));
    }
    checks.push_back(std::move(check));
}

void JudgeSilence(const std::vector<Sender> &senders, const Arrivals &arrivals, int iError,
                  std::vector<Check> &checks) {
    std::string names;
    const Sender *pSilent = nullptr;
    for (const Sender &sender : senders) {
        if (arrivals.own.contains(sender.ulIfIndex)) continue;
        names += (names.empty() ? "" : ", ") + text::Escape(sender.name);
        if (pSilent == nullptr) pSilent = &sender;
    }
    if (pSilent == nullptr)
        checks.push_back({"loopback", Result::kOk, "the query comes back", {}});
    else if (iError != 0)
        checks.push_back(
            {"loopback", Result::kSkipped, fmt::format("listening failed: {}", strerror(iError)), {}});
    else
        checks.push_back(ExplainSilence(*pSilent, names));
}

}  // namespace

std::string CheckTraffic(const Port &port, std::chrono::milliseconds listen, bool blAll,
                         std::vector<Check> &checks) {
    if (ListSenders(port).empty()) {
        checks.push_back({"send", Result::kSkipped, "needs a usable interface", {}});
        return {};
    }
    const int iResult = SendQuery(port);
    std::vector<Sender> senders = ListSenders(port);
    JudgeSending(iResult, senders, checks);
    if (port.iError != 0) {
        checks.push_back({"loopback",
                          Result::kSkipped,
                          fmt::format("needs UDP port {}, which is not available: {}", QIVEN_PORT,
                                      QIVENWatchError(port.iError)),
                          {}});
        return {};
    }
    Arrivals arrivals;
    const int iError = Listen(port, senders.size(), steady_clock::now() + listen, blAll, arrivals);
    if (!senders.empty()) JudgeSilence(senders, arrivals, iError, checks);
    if (blAll) checks.push_back(JudgeArrivals(arrivals));
    return CountsOf(arrivals.hosts);
}

}  // namespace qiven::doctor
