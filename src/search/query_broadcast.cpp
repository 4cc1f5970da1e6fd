// The broadcast of the query on every interface that the platform numbers (as a "card").
#include <qiven/packet.h>
#include <qiven/search.h>
#include <qiven/udp.h>

#include <tavonetsdk.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "udp/address.h"

using qiven::base::Descriptor;
using qiven::udp::EnableOption;
using qiven::udp::Generic;
using qiven::udp::MakeAddress;

int32_t iIFNum = -1;

namespace {

constexpr char kModule[] = "socket/socket_qiven_send_broadcast_udp";
constexpr int32_t kAllCards = -1;
constexpr int32_t kLastCard = 31;

enum class CardResult { kSent, kFailed, kNoCard };

CardResult BroadcastByCard(int32_t iCard, const void *pPkt, int cbPkt) {
    TAVO_NET_CARD card{};
    const int iFound = TAVONetGetCard1(iCard, 0, &card);
    if (iFound == 0) return CardResult::kNoCard;
    in_addr address{};
    if (iFound < 0 || inet_aton(card.szAddr, &address) == 0) return CardResult::kFailed;
    return BroadcastUdpByInterface(pPkt, cbPkt, &address.s_addr) < 0 ? CardResult::kFailed
                                                                     : CardResult::kSent;
}

// The functions of this file take no log record: a failed check is reported to syslog.
bool Check(bool blOk, const char *szCondition) {
    if (!blOk) syslog(LOG_ERR, "%s:%d Invaild Argument (%s)=[%d]\n", kModule, __LINE__, szCondition, 0);
    return blOk;
}

uint32_t CardBit(int32_t iCard) {
    return uint32_t{1} << (iCard < 0 ? kLastCard : std::min(iCard, kLastCard));
}

}  // namespace

int BroadcastUdpByInterface(const void *pPkt, int cbPkt, const uint32_t *pAddr) {
    if (!Check(pPkt != nullptr, "((void *)0) != pPkt") || !Check(cbPkt >= 0, "0 <= cbPkt") ||
        !Check(pAddr != nullptr, "((void *)0) != pAddr"))
        return -1;
    const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock.IsOpen()) {
        syslog(LOG_ERR, "create socket error.");
        return -1;
    }
    const sockaddr_in local = MakeAddress(*pAddr, 0);
    if (bind(sock.fd, Generic(local), sizeof local) != 0) {
        syslog(LOG_ERR, "bind(sockfd=%d, brdcast.sin_addr.s_addr = %lu) error!! errno=%d, err_str=[%s]",
               sock.fd, static_cast<unsigned long>(*pAddr), errno, strerror(errno));
        return -1;
    }
    if (!EnableOption(sock.fd, SO_BROADCAST)) {
        syslog(LOG_ERR, "set socket option error.");
        return -1;
    }
    const sockaddr_in destination = MakeAddress(INADDR_BROADCAST, QIVEN_PORT);
    if (sendto(sock.fd, pPkt, static_cast<size_t>(cbPkt), 0, Generic(destination), sizeof destination) !=
        cbPkt) {
        syslog(LOG_ERR, "sendto error.");
        return -1;
    }
    return 0;
}

uint32_t ErrQIVENSendBroadcastUdp(const void *pPkt, int cbPkt) {
    int32_t iFirst = 0;
    int32_t iLast = kLastCard;
    if (iIFNum != kAllCards) {
        syslog(LOG_WARNING, "%s:%d Interface specified: eth%d", kModule, __LINE__, iIFNum);
        iFirst = iIFNum;
        iLast = iIFNum;
    }
    uint32_t ulFailed = 0;
    // The counter has 64 bits, so that the loop also ends after card number INT32_MAX.
    for (int64_t iCard = iFirst; iCard <= iLast; ++iCard) {
        const auto card = static_cast<int32_t>(iCard);
        const CardResult result = BroadcastByCard(card, pPkt, cbPkt);
        if (result == CardResult::kNoCard) break;
        if (result == CardResult::kFailed) ulFailed |= CardBit(card);
    }
    return ulFailed;
}

uint32_t ErrQIVENSendQueryPkt(void) {
    const uint32_t ulFirst = ErrQIVENSendBroadcastUdp(stQIVENBroadCastVQX20, sizeof stQIVENBroadCastVQX20);
    return ulFirst | ErrQIVENSendBroadcastUdp(stQIVENBroadCastVQX20, sizeof stQIVENBroadCastVQX20);
}
