// Runs one search like a program:   search HOSTS [plain]
// Writes the name of each host as it appears, and then a line of JSON: number of hosts, the monotonic time in
// milliseconds of the last of HOSTS hosts and when the search was settled, losses, queries, processor time,
// memory.
#include <qiven/watch.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

double Milliseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

// Not that of getrusage(), which includes the program that started this one.
long PeakKilobytes() {
    long kbPeak = 0;
    FILE *pStatus = fopen("/proc/self/status", "re");
    char szLine[128];
    while (pStatus != nullptr && fgets(szLine, sizeof szLine, pStatus) != nullptr) {
        if (sscanf(szLine, "VmHWM: %ld", &kbPeak) == 1) break;
    }
    if (pStatus != nullptr) fclose(pStatus);
    return kbPeak;
}

}  // namespace

int main(int nArguments, char **rgszArgument) {
    const unsigned long nWanted = nArguments > 1 ? strtoul(rgszArgument[1], nullptr, 10) : 0;
    QIVEN_WATCH_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.ulFlags = nArguments > 2 ? QIVEN_WATCH_PLAIN : 0;
    QIVEN_WATCH *pWatch = nullptr;
    if (const int iResult = QIVENWatchOpen(&pWatch, &conf); iResult < 0) {
        fprintf(stderr, "%s\n", QIVENWatchError(iResult));
        return 3;
    }
    double dAll = 0;
    double dLongest = 0;
    unsigned long nFound = 0;
    uint32_t nRounds = 0;
    for (bool blSettled = false; !blSettled;) {
        pollfd readable{QIVENWatchFd(pWatch), POLLIN, 0};
        poll(&readable, 1, -1);
        const double dBefore = Milliseconds(CLOCK_MONOTONIC);
        QIVENWatchDispatch(pWatch);
        dLongest = std::max(dLongest, Milliseconds(CLOCK_MONOTONIC) - dBefore);
        while (const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(pWatch)) {
            if (pEvent->ulType == QIVEN_WATCH_APPEARED) {
                puts(pEvent->pHost->pnasInfo->szHostName);
                if (++nFound == nWanted) dAll = Milliseconds(CLOCK_MONOTONIC);
                if (nFound == 1) fflush(stdout);
            }
            if (pEvent->ulType == QIVEN_WATCH_ROUND) nRounds = pEvent->ulRound;
            blSettled |= pEvent->ulType == QIVEN_WATCH_SETTLED;
        }
        fflush(stdout);
    }
    QIVEN_COUNTS counts{};
    counts.cbSize = sizeof counts;
    QIVENWatchCounts(pWatch, &counts);
    printf(
        "{\"found\": %lu, \"all\": %.2f, \"settled\": %.1f, \"lost\": %llu, "
        "\"received\": %llu, \"rounds\": %u, \"cpu\": %.1f, \"longest\": %.2f, \"table\": %llu, "
        "\"memory\": %ld}\n",
        nFound, dAll, Milliseconds(CLOCK_MONOTONIC), static_cast<unsigned long long>(counts.ullLost),
        static_cast<unsigned long long>(counts.ullReceived), nRounds, Milliseconds(CLOCK_PROCESS_CPUTIME_ID),
        dLongest, static_cast<unsigned long long>(counts.cbMemory), PeakKilobytes());
    QIVENWatchClose(pWatch);
    return 0;
}
