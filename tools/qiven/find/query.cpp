#include "find/query.h"

#include <qiven/keys.h>
#include <qiven/packet.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "fields.h"
#include "interface_list.h"
#include "messages.h"
#include "text.h"

namespace qiven::find {

namespace {

constexpr uint32_t kFieldA4 = 0x01020000;  // as in the library's own query
constexpr std::array<const char *, 4> kLeftOut = {"docker*", "veth*", "br-*", "virbr*"};

bool MatchesAny(const std::vector<std::string> &patterns, const std::string &name) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&name](const auto &pattern) { return text::Matches(pattern, name); });
}

void Complain(Asker &asker, const std::string &text) {
    if (asker.complained.insert(text).second) messages::Say(text);
}

struct Free {
    void operator()(unsigned char *pBuffer) const { free(pBuffer); }
};

// The query of one interface; empty when it cannot be built.
std::vector<unsigned char> Build(const Asker &asker, const QIVEN_NETIF &netIf) {
    nasinfo record{};
    QIVEN_SEND send{};
    send.pnasInfo = &record;
    record.ulPktType = QIVEN_PKT_QUERY;
    record.ulFieldA4 = kFieldA4;
    record.ulProcessID = QIVENProcessGetID();
    const auto &mac = netIf.rgMac;
    const unsigned char *pKey = QIVENProcessPublicKeyGet();
    if (pKey == nullptr) return {};
    const std::string key = text::Hex({reinterpret_cast<const char *>(pKey), QIVEN_KEY_SIZE});
    fields::SetText(record, *fields::ByName("public_key"), key);
    fields::SetText(record, *fields::ByName("mac"),
                    fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3],
                                mac[4], mac[5]));
    QIVENSendPktIDAdd(asker.pLog, &send, 0x01U, 0xA4U, 0x7CU, 0xC4U, 0xC5U, 0U);

    int cbBuffer = QIVEN_PACKET_MAX;
    auto *pBuffer = static_cast<unsigned char *>(calloc(1, QIVEN_PACKET_MAX));
    if (pBuffer == nullptr) return {};
    const int cbPacket = QIVENPacketWrite(asker.pLog, &pBuffer, &cbBuffer, &send);
    const std::unique_ptr<unsigned char, Free> buffer(pBuffer);
    return {pBuffer, pBuffer + cbPacket};
}

bool SendBy(Asker &asker, const QIVEN_NETIF &netIf) {
    const QIVEN_CONN conn{"255.255.255.255", QIVEN_PORT, 0, nullptr, asker.pLog};
    messages::TakeLast();
    const std::vector<unsigned char> packet = Build(asker, netIf);
    const int cbPacket = static_cast<int>(packet.size());
    if (!packet.empty() && QIVENUDPSend(asker.pLog, packet.data(), cbPacket, &conn, &netIf, 1) == cbPacket)
        return true;
    const std::string reason = messages::TakeLast();
    Complain(asker, fmt::format("cannot ask on {}: {}", netIf.szIfName,
                                reason.empty() ? std::string(strerror(ENOMEM)) : reason));
    return false;
}

// Why the kernel did not tell about an interface; empty if it did. The library says "... error:(NUMBER)", and
// also of an interface that merely has no address.
std::string TakeRefusal() {
    std::string message = messages::TakeLast();
    constexpr std::string_view kNumber = "error:(";
    const size_t uAt = message.rfind(kNumber);
    if (uAt == std::string::npos) return message;
    const auto iError = static_cast<int>(strtol(message.c_str() + uAt + kNumber.size(), nullptr, 10));
    return iError == EADDRNOTAVAIL ? std::string() : strerror(iError);
}

std::string WhyNone(const Asker &asker, size_t nWanted) {
    if (nWanted != 0) return "no chosen interface has an IPv4 address";
    std::vector<QIVEN_NETIF> all;
    ListInterfaces(
        nullptr, [](const char *) { return true; }, all);
    if (all.empty()) return "no usable network interface (up, with a carrier, not loopback)";
    if (!asker.interfaces.empty()) return "no usable interface has a name that --interface allows";
    return "every usable interface is left out; see --interface and --all-interfaces";
}

}  // namespace

bool IsWanted(const Asker &asker, const std::string &name) {
    if (MatchesAny(asker.excludes, name)) return false;
    if (!asker.interfaces.empty()) return MatchesAny(asker.interfaces, name);
    return asker.blAllInterfaces || !MatchesAny({kLeftOut.begin(), kLeftOut.end()}, name);
}

Asked Ask(Asker &asker) {
    std::vector<QIVEN_NETIF> list;
    messages::TakeLast();
    const int iError = ListInterfaces(
        asker.pLog, [&asker](const char *szName) { return IsWanted(asker, szName); }, list);
    const std::string refusal = iError != 0 ? strerror(iError) : TakeRefusal();
    Asked asked;
    size_t nActive = 0;
    for (const QIVEN_NETIF &netIf : list) {
        if (netIf.blActive == 0) continue;
        ++nActive;
        if (SendBy(asker, netIf)) ++asked.nSent;
    }
    if (nActive != 0) return asked;
    asked.blNone = refusal.empty();
    Complain(asker, asked.blNone ? WhyNone(asker, list.size())
                                 : "the network interfaces cannot be read: " + refusal);
    return asked;
}

}  // namespace qiven::find
