/* Finds the hosts of the segment, with libuv. Exits with 0 if there are any. */
#include <qiven/watch.h>

#include <arpa/inet.h>
#include <ctype.h>
#include <stdio.h>
#include <uv.h>

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

static void OnReadable(uv_poll_t *pPoll, int iStatus, int iEvents) {
    (void)iStatus, (void)iEvents;
    QIVENWatchDispatch(pPoll->data);
    if (Show(pPoll->data)) uv_poll_stop(pPoll);
}

int main(void) {
    QIVEN_WATCH *pWatch;
    const int iResult = QIVENWatchOpen(&pWatch, NULL);
    if (iResult < 0) {
        fprintf(stderr, "cannot search: %s\n", QIVENWatchError(iResult));
        return 3;
    }
    uv_poll_t readable = {.data = pWatch};
    uv_poll_init(uv_default_loop(), &readable, QIVENWatchFd(pWatch));
    uv_poll_start(&readable, UV_READABLE, OnReadable);
    uv_run(uv_default_loop(), UV_RUN_DEFAULT);
    QIVENWatchClose(pWatch);
    return nHosts > 0 ? 0 : 1;
}
