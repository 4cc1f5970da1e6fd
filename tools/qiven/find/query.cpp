#include "find/query.h"

#include <qiven/keys.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "container_interfaces.h"
#include "fields.h"
#include "interface_list.h"
#include "messages.h"
#include "packet_buffer.h"
#include "text.h"

namespace qiven::find {

namespace {

bool MatchesAny(const std::vector<std::string> &patterns, const std::string &name) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&name](const auto &pattern) { return text::Matches(pattern, name); });
}

void Complain(Querier &querier, const std::string &text) {
    if (querier.complained.insert(text).second) messages::Say(text);
}

// The query for one interface; empty if it cannot be built.
std::vector<unsigned char> Build(const Querier &querier, const QIVEN_NETIF &netIf) {
    nasinfo record{};
    QIVEN_SEND send{};
    send.pnasInfo = &record;
    record.ulPktType = QIVEN_PKT_QUERY;
    record.ulFieldA4 = QIVEN_FIELD_A4_VQX20;  // as in the library's own query
    record.ulProcessID = QIVENProcessGetID();
    const unsigned char *pKey = QIVENProcessPublicKeyGet();
    if (pKey == nullptr) return {};
    const std::string key = text::Hex({reinterpret_cast<const char *>(pKey), QIVEN_KEY_SIZE});
    fields::SetText(record, *fields::ByName("public_key"), key);
    fields::SetText(record, *fields::ByName("mac"), fields::MacText(netIf.rgMac));
    for (const unsigned int ulPktId :
         {PKT_ID_PKT_TYPE, PKT_ID_FIELD_A4, PKT_ID_MAC_ADDR, PKT_ID_PUB_KEY_HEX, PKT_ID_PROCESS_ID})
        QIVENSendPktIDAdd(querier.pLog, &send, ulPktId, 0U);

    PacketBuffer buffer;
    if (buffer.pb == nullptr) return {};
    const int cbPacket = QIVENPacketWrite(querier.pLog, &buffer.pb, &buffer.cbCapacity, &send);
    return {buffer.pb, buffer.pb + cbPacket};
}

bool SendOn(Querier &querier, const QIVEN_NETIF &netIf) {
    const QIVEN_CONN conn{"255.255.255.255", QIVEN_PORT, 0, nullptr, querier.pLog};
    messages::TakeLast();
    const std::vector<unsigned char> packet = Build(querier, netIf);
    const int cbPacket = static_cast<int>(packet.size());
    if (!packet.empty() && QIVENUDPSend(querier.pLog, packet.data(), cbPacket, &conn, &netIf, 1) == cbPacket)
        return true;
    const std::string reason = messages::TakeLast();
    Complain(querier, fmt::format("cannot send the query on {}: {}", netIf.szIfName,
                                  reason.empty() ? std::string(strerror(ENOMEM)) : reason));
    return false;
}

// Why the kernel gave no information on an interface; empty if it did. The message of the library ends in
// "error:(NUMBER)", also for an interface that merely has no address.
std::string TakeRefusal() {
    std::string message = messages::TakeLast();
    constexpr std::string_view kNumber = "error:(";
    const size_t uAt = message.rfind(kNumber);
    if (uAt == std::string::npos) return message;
    const auto iError = static_cast<int>(strtol(message.c_str() + uAt + kNumber.size(), nullptr, 10));
    return iError == EADDRNOTAVAIL ? std::string() : strerror(iError);
}

std::string WhyNone(const Querier &querier, size_t nWanted) {
    if (nWanted != 0) return "none of the selected interfaces has an IPv4 address";
    std::vector<QIVEN_NETIF> all;
    interface_list::List(
        nullptr, [](const std::string &) { return true; }, all);
    if (all.empty()) return "no usable network interface (up, with a carrier, not loopback)";
    if (!querier.interfaces.empty()) return "no usable interface matches --interface";
    return "all usable interfaces are excluded; see --interface and --all-interfaces";
}

}  // namespace

bool IsWanted(const Querier &querier, const std::string &name) {
    if (MatchesAny(querier.excludes, name)) return false;
    if (!querier.interfaces.empty()) return MatchesAny(querier.interfaces, name);
    return querier.blAllInterfaces || !IsContainerInterface(name);
}

Queried SendQueries(Querier &querier) {
    std::vector<QIVEN_NETIF> list;
    messages::TakeLast();
    const int iError = interface_list::List(
        querier.pLog, [&querier](const std::string &name) { return IsWanted(querier, name); }, list);
    const std::string refusal = iError != 0 ? strerror(iError) : TakeRefusal();
    Queried queried;
    size_t nActive = 0;
    for (const QIVEN_NETIF &netIf : list) {
        if (netIf.blActive == 0) continue;
        ++nActive;
        if (SendOn(querier, netIf)) ++queried.nSent;
    }
    if (nActive != 0) return queried;
    queried.blNoInterface = refusal.empty();
    Complain(querier, queried.blNoInterface ? WhyNone(querier, list.size())
                                            : "the network interfaces cannot be read: " + refusal);
    return queried;
}

}  // namespace qiven::find
