// The identifier list of a send request, and the values that go with it.
#include <qiven/packet.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/message.h"
#include "packet/field_table.h"

using qiven::base::Check;

namespace qiven::packet {

namespace {

// Whether nMore identifiers can be appended to the list of a request. Appending none is always possible.
bool HasSpace(const QIVEN_SEND &send, int nMore) {
    return nMore == 0 || (0 <= send.nPktID && send.nPktID <= QIVEN_SEND_MAX - nMore);
}

bool IsListed(const QIVEN_SEND &send, unsigned int pktID) {
    const uint32_t *pEnd = send.rgPktID + std::clamp(send.nPktID, 0, QIVEN_SEND_MAX);
    return std::find(send.rgPktID, pEnd, pktID) != pEnd;
}

void Append(QIVEN_SEND &send, unsigned int pktID) {
    send.rgPktID[send.nPktID++] = pktID;
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENSendPktIDSet(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID, const void *pValue,
                      int cbValue) {
    if (!Check(pLog, kModule, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kModule, PKT_ID_MIN < pktID, "PKT_ID_MIN < pktID")) return -1;
    if (!Check(pLog, kModule, PKT_ID_MAX > pktID, "PKT_ID_MAX > pktID")) return -1;
    const QIVEN_FIELD_ATTRIB *pAttrib = FindField(pktID);
    if (pAttrib == nullptr) {
        printf("unknown PKT-ID: [0x%X]\n", pktID);
        return -1;
    }
    const int cbSlot = static_cast<int>(SlotSize(*pAttrib));
    if (!Check(pLog, kModule, nullptr != pqivenSend->pnasInfo, "((void *)0) != pqivenSend->pnasInfo"))
        return -1;
    if (!Check(pLog, kModule, nullptr != pValue, "((void *)0) != pValue")) return -1;
    if (!Check(pLog, kModule, FIELD_NONE != pAttrib->ulType, "FIELD_NONE != ulType")) return -1;
    if (!Check(pLog, kModule, cbSlot >= cbValue, "cbSlot >= cbValue")) return -1;
    const bool blListed = IsListed(*pqivenSend, pktID);
    if (!Check(pLog, kModule, blListed || HasSpace(*pqivenSend, 1), "QIVEN_SEND_MAX > nPktID")) return -1;

    // memmove(), because the value may be the slot itself.
    memmove(Slot(*pqivenSend->pnasInfo, pAttrib->ulOffset), pValue,
            static_cast<size_t>(std::max(cbValue, static_cast<int>(pAttrib->cbField))));
    if (!blListed) Append(*pqivenSend, pktID);
    return 0;
}

int QIVENSendPktIDAdd(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID1, ...) {
    if (!Check(pLog, kModule, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kModule, PKT_ID_MIN < pktID1, "PKT_ID_MIN < pktID1")) return -1;
    if (!Check(pLog, kModule, PKT_ID_MAX > pktID1, "PKT_ID_MAX > pktID1")) return -1;

    // The identifiers are counted first, so that nothing is appended if they do not all fit.
    va_list args;
    va_start(args, pktID1);
    int nAdded = 1;
    while (nAdded <= QIVEN_SEND_MAX && va_arg(args, unsigned int) != 0)
        ++nAdded;
    va_end(args);
    if (!Check(pLog, kModule, HasSpace(*pqivenSend, nAdded), "QIVEN_SEND_MAX >= nPktID + nAdded")) return -1;

    Append(*pqivenSend, pktID1);
    va_start(args, pktID1);
    for (int i = 1; i < nAdded; ++i)
        Append(*pqivenSend, va_arg(args, unsigned int));
    va_end(args);
    return nAdded;
}

int QIVENSendPktIDAddServ(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, int blServSupp, int blServRun) {
    if (!Check(pLog, kModule, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kModule, blServSupp == 0 || blServSupp == 1, "(0 == blServSupp || 1 == blServSupp)"))
        return -1;
    if (!Check(pLog, kModule, blServRun == 0 || blServRun == 1, "(0 == blServRun || 1 == blServRun)"))
        return -1;
    const int nAdded = 2 * (blServSupp + blServRun);
    if (!Check(pLog, kModule, HasSpace(*pqivenSend, nAdded), "QIVEN_SEND_MAX >= nPktID + nAdded")) return -1;

    if (blServSupp == 1) QIVENSendPktIDAdd(pLog, pqivenSend, PKT_ID_SERV_SUPP0, PKT_ID_SERV_SUPP1, 0);
    if (blServRun == 1) QIVENSendPktIDAdd(pLog, pqivenSend, PKT_ID_SERV_RUN0, PKT_ID_SERV_RUN1, 0);
    return nAdded;
}
