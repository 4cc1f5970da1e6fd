#include <qiven/packet.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "log/message.h"
#include "packet/field_table.h"

using qiven::log::Check;

namespace qiven::packet {

namespace {

// Whether nMore identifiers can be appended to a request's list.
bool HasRoom(const QIVEN_SEND &send, int nMore) {
    return 0 <= send.nPktID && send.nPktID <= QIVEN_SEND_MAX - nMore;
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
    if (!Check(pLog, kRoom, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kRoom, PKT_ID_MIN < pktID, "PKT_ID_MIN < pktID")) return -1;
    if (!Check(pLog, kRoom, PKT_ID_MAX > pktID, "PKT_ID_MAX > pktID")) return -1;
    const QIVEN_FIELD_ATTRIB *pAttrib = FindField(pktID);
    if (pAttrib == nullptr) {
        printf("unknown PKT-ID: [0x%X]\n", pktID);
        return -1;
    }
    const int cbSlot = static_cast<int>(SlotSize(*pAttrib));
    if (!Check(pLog, kRoom, nullptr != pqivenSend->pnasInfo, "((void *)0) != pqivenSend->pnasInfo"))
        return -1;
    if (!Check(pLog, kRoom, nullptr != pValue, "((void *)0) != pValue")) return -1;
    if (!Check(pLog, kRoom, FIELD_NONE != pAttrib->ulType, "FIELD_NONE != ulType")) return -1;
    if (!Check(pLog, kRoom, cbSlot >= cbValue, "cbSlot >= cbValue")) return -1;
    const bool blListed = IsListed(*pqivenSend, pktID);
    if (!Check(pLog, kRoom, blListed || HasRoom(*pqivenSend, 1), "QIVEN_SEND_MAX > nPktID")) return -1;

    // The value may be the slot itself, when the caller has filled the record beforehand.
    memmove(Slot(*pqivenSend->pnasInfo, pAttrib->ulOffset), pValue,
            static_cast<size_t>(std::max(cbValue, static_cast<int>(pAttrib->cbField))));
    if (!blListed) Append(*pqivenSend, pktID);
    return 0;
}

int QIVENSendPktIDAdd(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID1, ...) {
    if (!Check(pLog, kRoom, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kRoom, PKT_ID_MIN < pktID1, "PKT_ID_MIN < pktID1")) return -1;
    if (!Check(pLog, kRoom, PKT_ID_MAX > pktID1, "PKT_ID_MAX > pktID1")) return -1;

    // Counted first, so that a list without room for all of them stays as it is.
    va_list args;
    va_start(args, pktID1);
    int nAdded = 1;
    while (nAdded <= QIVEN_SEND_MAX && va_arg(args, unsigned int) != 0)
        ++nAdded;
    va_end(args);
    if (!Check(pLog, kRoom, HasRoom(*pqivenSend, nAdded), "QIVEN_SEND_MAX >= nPktID + nAdded")) return -1;

    Append(*pqivenSend, pktID1);
    va_start(args, pktID1);
    for (int i = 1; i < nAdded; ++i)
        Append(*pqivenSend, va_arg(args, unsigned int));
    va_end(args);
    return nAdded;
}

int QIVENSendPktIDAddServ(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, int blServSupp, int blServRun) {
    if (!Check(pLog, kRoom, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return -1;
    if (!Check(pLog, kRoom, blServSupp == 0 || blServSupp == 1, "(0 == blServSupp || 1 == blServSupp)"))
        return -1;
    if (!Check(pLog, kRoom, blServRun == 0 || blServRun == 1, "(0 == blServRun || 1 == blServRun)"))
        return -1;
    const int nAdded = 2 * (blServSupp + blServRun);
    if (!Check(pLog, kRoom, HasRoom(*pqivenSend, nAdded), "QIVEN_SEND_MAX >= nPktID + nAdded")) return -1;

    if (blServSupp == 1) QIVENSendPktIDAdd(pLog, pqivenSend, 0xB0, 0xB1, 0);
    if (blServRun == 1) QIVENSendPktIDAdd(pLog, pqivenSend, 0xB8, 0xB9, 0);
    return nAdded;
}
