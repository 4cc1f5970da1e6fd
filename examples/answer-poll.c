/* Answers the queries of searchers, with poll(2): answer-poll NAME IDENT [EXIT-AFTER]. A host that anybody
   can reach should also bound how often it answers, as `qiven answer` does. */
#include <qiven/watch.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

/* Sealed to the searcher if its query brought a key; on the segment that it came from, with our address
 * there. */
static int Answer(QIVEN_ENDPOINT *pEndpoint, const QIVEN_SEND *pqivenSend, const QIVEN_RECEIVED *pQuery) {
    QIVEN_TO to = {.cbSize = sizeof to, .ulFlags = QIVEN_TO_SEGMENT | QIVEN_TO_ADDRESS};
    to.ulIfIndex = pQuery->ulIfIndex;
    if ((pQuery->ulFlags & QIVEN_RECEIVED_KEY) != 0) {
        to.szPublicKeyHex = pQuery->pnasInfo->szPubKeyHex;
        to.ulPeerProcessID = pQuery->pnasInfo->ulProcessID;
    }
    const int iResult = QIVENEndpointSend(pEndpoint, pqivenSend, &to);
    if (iResult < 0) fprintf(stderr, "cannot answer: %s\n", QIVENWatchError(iResult));
    return iResult > 0;
}

int main(int nArguments, char **rgszArgument) {
    if (nArguments < 3) return 2;
    nasinfo record = {
        .ulPktType = QIVEN_PKT_ANSWER, .ulFieldA4 = QIVEN_FIELD_A4_VQX20, .ulModel = 1, .ulField49 = 240};
    snprintf(record.szHostName, sizeof record.szHostName, "%s", rgszArgument[1]);
    snprintf(record.szHostIdent, sizeof record.szHostIdent, "%s", rgszArgument[2]);
    QIVEN_SEND send = {.pnasInfo = &record};
    QIVENSendPktIDAdd(NULL, &send, 0x01U, 0xA4U, 0x11U, 0x19U, 0x48U, 0x49U, 0U);

    QIVEN_ENDPOINT *pEndpoint;
    const QIVEN_ENDPOINT_CONF conf = {.cbSize = sizeof conf, .ulTypes = 1U << QIVEN_PKT_QUERY};
    const int iResult = QIVENEndpointOpen(&pEndpoint, &conf);
    if (iResult < 0) {
        fprintf(stderr, "cannot listen: %s\n", QIVENWatchError(iResult));
        return 3;
    }
    long nLeft = nArguments > 3 ? strtol(rgszArgument[3], NULL, 10) : -1; /* never */
    struct pollfd readable = {.fd = QIVENEndpointFd(pEndpoint), .events = POLLIN};
    while (nLeft != 0) {
        poll(&readable, 1, -1);
        const QIVEN_RECEIVED *pQuery;
        while (nLeft != 0 && (pQuery = QIVENEndpointReceive(pEndpoint)) != NULL)
            if (Answer(pEndpoint, &send, pQuery) && nLeft > 0) --nLeft;
    }
    QIVENEndpointClose(pEndpoint);
    return 0;
}
