#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "clock.h"
#include "net/port.h"

using qiven::watch::kMillisecond;
using qiven::watch::NowUs;
using qiven::watch::Port;

struct QIVEN_ENDPOINT {
    Port port;
    QIVEN_RECEIVED received;
    unsigned nTaken = 0;  // since the sockets were emptied
};

namespace {

constexpr uint64_t kWorkTime = 5 * kMillisecond;
constexpr unsigned kTakenAtOnce =
    64;  // then the sockets are emptied again, whatever the caller does meanwhile

void ArmPort(QIVEN_ENDPOINT &endpoint) {
    qiven::watch::Arm(endpoint.port, qiven::watch::DueOf(endpoint.port));
}

bool IsUsable(const QIVEN_ENDPOINT *pEndpoint) {
    return pEndpoint != nullptr && pEndpoint->port.pid == getpid();
}

}  // namespace

int QIVENEndpointOpen(QIVEN_ENDPOINT **ppEndpoint, const QIVEN_ENDPOINT_CONF *pConf) {
    QIVEN_ENDPOINT_CONF conf{};
    if (ppEndpoint == nullptr) return -EINVAL;
    *ppEndpoint = nullptr;
    if (pConf != nullptr) qiven::watch::CopySized(&conf, sizeof conf, pConf, pConf->cbSize);
    void *p = malloc(sizeof(QIVEN_ENDPOINT));
    if (p == nullptr) return -ENOMEM;
    auto *pEndpoint = new (p) QIVEN_ENDPOINT;
    Port &port = pEndpoint->port;
    port.blPlain = (conf.ulFlags & QIVEN_ENDPOINT_PLAIN) != 0;
    port.blShut = (conf.ulFlags & QIVEN_ENDPOINT_SHUT) != 0;
    port.blGiveOwn = (conf.ulFlags & QIVEN_ENDPOINT_OWN) != 0;
    port.blGiveRefused = (conf.ulFlags & QIVEN_ENDPOINT_REFUSED) != 0;
    port.blNoPort = (conf.ulFlags & QIVEN_ENDPOINT_NO_PORT) != 0;
    port.ulTypes = conf.ulTypes;
    const int iResult = qiven::watch::OpenPort(port, conf.pfnInterface, conf.pvUser);
    if (iResult != 0) {
        free(p);
        return iResult;
    }
    ArmPort(*pEndpoint);
    *ppEndpoint = pEndpoint;
    return 0;
}

int QIVENEndpointFd(const QIVEN_ENDPOINT *pEndpoint) {
    return pEndpoint != nullptr ? pEndpoint->port.fdEpoll : -EINVAL;
}

const QIVEN_RECEIVED *QIVENEndpointReceive(QIVEN_ENDPOINT *pEndpoint) {
    if (!IsUsable(pEndpoint)) return nullptr;
    Port &port = pEndpoint->port;
    const uint64_t ullUntilUs = NowUs() + kWorkTime;
    if (port.sockets.inbox.nDatagrams == 0 || ++pEndpoint->nTaken >= kTakenAtOnce) {
        qiven::watch::Work(port, ullUntilUs);
        pEndpoint->nTaken = 0;
    }
    const bool blTaken = qiven::watch::Take(port, pEndpoint->received, ullUntilUs);
    ArmPort(*pEndpoint);
    return blTaken ? &pEndpoint->received : nullptr;
}

int QIVENEndpointSend(QIVEN_ENDPOINT *pEndpoint, const QIVEN_SEND *pqivenSend, const QIVEN_TO *pTo) {
    QIVEN_TO to{};
    if (!IsUsable(pEndpoint) || pqivenSend == nullptr) return -EINVAL;
    if (pTo != nullptr) qiven::watch::CopySized(&to, sizeof to, pTo, pTo->cbSize);
    return qiven::watch::Send(pEndpoint->port, *pqivenSend, to);
}

const QIVEN_INTERFACE *QIVENEndpointInterface(QIVEN_ENDPOINT *pEndpoint, uint32_t ulAfter) {
    if (!IsUsable(pEndpoint)) return nullptr;
    const auto *pInterface = qiven::watch::InterfaceAfter(pEndpoint->port.interfaces, ulAfter);
    return pInterface != nullptr ? &pInterface->shown : nullptr;
}

int QIVENEndpointCounts(QIVEN_ENDPOINT *pEndpoint, QIVEN_COUNTS *pCounts) {
    if (!IsUsable(pEndpoint) || pCounts == nullptr) return -EINVAL;
    const QIVEN_COUNTS counts = qiven::watch::CountsOf(pEndpoint->port);
    const uint32_t cbSize = pCounts->cbSize;
    qiven::watch::CopySized(pCounts, cbSize, &counts, sizeof counts);
    if (cbSize >= sizeof cbSize) pCounts->cbSize = cbSize;
    return 0;
}

void QIVENEndpointClose(QIVEN_ENDPOINT *pEndpoint) {
    if (pEndpoint == nullptr) return;
    qiven::watch::ClosePort(pEndpoint->port);
    free(pEndpoint);
}
