/* Finds the hosts of the segment, with poll(2). Exits with 0 if there are any. */
#include <qiven/watch.h>

#include <arpa/inet.h>
#include <ctype.h>
#include <poll.h>
#include <stdio.h>

/* A name comes from a stranger: nothing of it may steer the terminal. */
static void Print(const QIVEN_WATCH_HOST *pHost) {
    char szIP[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pHost->rgAddress[0].ulIP, szIP, sizeof szIP);
    for (const char *p = pHost->pnasInfo->szHostName; *p != '\0'; ++p)
        putchar(isprint((unsigned char)*p) ? *p : '?');
    printf("\t%s\t%s\n", szIP, pHost->rgAddress[0].szIfName);
    fflush(stdout);
}

static int nHosts;

/* Shows what is new; returns 1 when all who could answer have. */
static int Show(QIVEN_WATCH *pWatch) {
    const QIVEN_WATCH_EVENT *pEvent;
    while ((pEvent = QIVENWatchNext(pWatch)) != NULL) {
        if (pEvent->ulType == QIVEN_WATCH_APPEARED) ++nHosts, Print(pEvent->pHost);
        if (pEvent->ulType == QIVEN_WATCH_SETTLED) return 1;
    }
    return 0;
}

int main(void) {
    QIVEN_WATCH *pWatch;
    const int iResult = QIVENWatchOpen(&pWatch, NULL);
    if (iResult < 0) {
        fprintf(stderr, "cannot search: %s\n", QIVENWatchError(iResult));
        return 3;
    }
    struct pollfd readable = {.fd = QIVENWatchFd(pWatch), .events = POLLIN};
    while (!Show(pWatch)) {
        poll(&readable, 1, -1);
        QIVENWatchDispatch(pWatch);
    }
    QIVENWatchClose(pWatch);
    return nHosts > 0 ? 0 : 1;
}
