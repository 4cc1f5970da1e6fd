#include "answer/reply.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "fields.h"
#include "output/format.h"

namespace qiven::answer {

namespace {

std::optional<Searcher> SearcherOf(const QIVEN_RECEIVED &received, uint32_t ulSegment) {
    if ((received.ulFlags & QIVEN_RECEIVED_KEY) == 0) return std::nullopt;
    Searcher searcher{ulSegment, received.pnasInfo->ulProcessID, {}};
    std::copy_n(received.pnasInfo->szPubKeyHex, QIVEN_KEY_HEX_SIZE - 1, searcher.szKeyHex.begin());
    return searcher;
}

// A forged sender would turn the answers against the segment from anywhere.
const char *WhyNot(const Run &run, const QIVEN_RECEIVED &received) {
    if (received.pnasInfo == nullptr) return "they are sealed, or no packet";
    if ((received.ulFlags & QIVEN_RECEIVED_UNUSED) != 0) return "the interface is not used";
    const bool blOffSegment = (received.ulFlags & QIVEN_RECEIVED_OFF_LINK) != 0;
    return blOffSegment && !run.configuration.blOffSegment ? "their sender is not on the segment" : nullptr;
}

// Says where the last answer on the segment could not be sent. False if there is no such interface.
bool SayFailures(Run &run, uint32_t ulSegment) {
    bool blSaid = false;
    const QIVEN_INTERFACE *p = nullptr;
    for (uint32_t ulAfter = 0; (p = QIVENEndpointInterface(run.port->pEndpoint, ulAfter)) != nullptr;) {
        ulAfter = p->ulIfIndex;
        if (p->ulState != QIVEN_INTERFACE_FAILED || SegmentOf(run.outlets, ulAfter) != ulSegment) continue;
        Say(run.trouble, fmt::format("cannot answer on {}: {}", p->szIfName, QIVENWatchError(p->iResult)));
        blSaid = true;
    }
    return blSaid;
}

}  // namespace

void Answer(Run &run, uint32_t ulIfIndex, const Searcher *pSearcher) {
    QIVEN_SEND send{};
    send.pnasInfo = &run.configuration.announcement.record;
    for (const uint32_t ulPktId : run.configuration.announcement.ids)
        QIVENSendPktIDAdd(nullptr, &send, ulPktId, 0U);
    QIVEN_TO to{};
    to.cbSize = sizeof to;
    to.ulFlags = QIVEN_TO_SEGMENT | QIVEN_TO_ADDRESS;
    to.ulIfIndex = ulIfIndex;
    if (pSearcher != nullptr) {
        to.ulPeerProcessID = pSearcher->ulProcessID;
        to.szPublicKeyHex = pSearcher->szKeyHex.data();
    }
    const int iResult = QIVENEndpointSend(run.port->pEndpoint, &send, &to);
    if (SayFailures(run, SegmentOf(run.outlets, ulIfIndex)) || iResult > 0) return;
    const bool blKey = pSearcher != nullptr && iResult == -EINVAL;
    Say(run.trouble, fmt::format("cannot answer: {}", blKey ? "the key of the query cannot be sealed to"
                                                            : QIVENWatchError(iResult)));
}

void Consider(Run &run, const QIVEN_RECEIVED &received, Milliseconds now) {
    if (const char *szWhy = WhyNot(run, received); szWhy != nullptr) {
        if (run.options.blVerbose)
            Say(run.refusals, fmt::format("{} bytes from {} on {} are not answered: {}", received.cbDatagram,
                                          fields::Dotted(received.ulSource), received.szIfName, szWhy));
        return;
    }
    // The next call on the endpoint takes the record away.
    const uint32_t ulIfIndex = received.ulIfIndex, ulSource = received.ulSource;
    const uint32_t ulSegment = SegmentOf(run.outlets, ulIfIndex);
    const auto searcher = run.options.blNeverSeal ? std::nullopt : SearcherOf(received, ulSegment);
    const Admission admission = searcher ? Admit(run.sealed, *searcher, ulSource, now) : Admission::kTooMany;
    if (admission == Admission::kTooMany) Ask(run.plain, ulSegment, ulIfIndex);
    if (admission == Admission::kSeal) Answer(run, ulIfIndex, &*searcher);
}

}  // namespace qiven::answer
