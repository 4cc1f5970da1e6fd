// Sending of one packet.
#include <qiven/udp.h>

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "base/message.h"
#include "udp/address.h"

using qiven::base::Check;
using qiven::base::Descriptor;
using qiven::base::Error;
using namespace qiven::udp;

namespace {

constexpr uint32_t kNoAddress = 0xFFFFFFFF;

bool Bind(const QIVEN_LOG *pLog, int fd, uint32_t ulIP) {
    const sockaddr_in local = MakeAddress(ulIP, QIVEN_SOURCE_PORT);
    if (bind(fd, Generic(local), sizeof local) == 0) return true;
    Error(pLog, kModule, "bind(sockfd=%d, brdcast.sin_addr.s_addr = %lu) error!! error: %d [%s]\n", fd,
          static_cast<unsigned long>(ulIP), errno, strerror(errno));
    return false;
}

}  // namespace

int QIVENUDPSend(const QIVEN_LOG *pLog, const unsigned char *szPKTOutput, int cbPKTOutput,
                 const QIVEN_CONN *pqivenConn, const QIVEN_NETIF *pNetIf, int blBind) {
    if (!Check(pLog, kModule, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kModule, 0 < cbPKTOutput, "0 < cbPKTOutput")) return 0;
    if (!Check(pLog, kModule, nullptr != pqivenConn, "((void *)0) != pqivenConn")) return 0;
    if (!Check(pLog, kModule, nullptr != pNetIf, "NULL != pNetIf")) return 0;
    if (QIVENSocketInit() == -1) {
        Error(pLog, kModule, "Init socket error.\n");
        return -1;
    }
    if (blBind != 0 && (pNetIf->ulIP == 0 || pNetIf->ulIP == kNoAddress)) {
        Error(pLog, kModule, "fail to init Iface [%s] src addr [%X]\n", pNetIf->szIfName, pNetIf->ulIP);
        return -1;
    }
    sockaddr_in destination;
    if (!ToAddress(*pqivenConn, destination)) {
        Error(pLog, kModule, "fail to translate IP addr\n");
        return -1;
    }
    const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock.IsOpen()) {
        Error(pLog, kModule, "create socket error.\n");
        return -1;
    }
    if (!EnableOption(sock.fd, SO_REUSEADDR)) Error(pLog, kModule, "control setsockopt (SO_REUSEADDR)\n");
    if (!EnableOption(sock.fd, SO_BROADCAST)) Error(pLog, kModule, "control setsockopt (SO_BROADCAST)\n");
    if (blBind != 0 && !Bind(pLog, sock.fd, pNetIf->ulIP)) return -1;

    const ssize_t cbSent = sendto(sock.fd, szPKTOutput, static_cast<size_t>(cbPKTOutput), 0,
                                  Generic(destination), sizeof destination);
    if (cbSent == cbPKTOutput) return cbPKTOutput;
    Error(pLog, kModule, "sendto error ret=[%d] %d [%s]\n", static_cast<int>(cbSent), errno, strerror(errno));
    return -1;
}
