// The one-call host search: broadcasts the query, listens, and finishes the host list.
#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>

#include <tavocore.h>

#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "search/host_list.h"

namespace {

constexpr char kModule[] = "socket/socket_qiven_dump_host";
constexpr int kListenSeconds = 10;

// The search's output function: writes a finished message to standard error.
int logToStderr(const char *szMessage) {
    fputs(szMessage, stderr);
    return 0;
}

// Points gpLog at the record of the search while the search runs.
struct GlobalLog {
    explicit GlobalLog(QIVEN_LOG *pLog) { gpLog = pLog; }
    ~GlobalLog() { gpLog = nullptr; }
    GlobalLog(const GlobalLog &) = delete;
    GlobalLog &operator=(const GlobalLog &) = delete;
};

// Creates the process key pair, and releases it when the search ends.
struct SearchKeys {
    const bool blReady = QIVENProcessKeyInit() == 0;
    SearchKeys() = default;
    ~SearchKeys() {
        if (blReady) QIVENProcessKeyCleanup();
    }
    SearchKeys(const SearchKeys &) = delete;
    SearchKeys &operator=(const SearchKeys &) = delete;
};

int Listen(QIVEN_LOG *pLog) {
    using namespace qiven::search;
    QIVEN_RECV recv{};
    recv.pfnFilter = checkNasinfoType;
    recv.pfnHandler = addNasinfoToList;
    QIVEN_CONN conn{"0.0.0.0", QIVEN_PORT, kListenSeconds, nullptr, pLog};
    if (QIVENUDPServer(&conn, &recv, nullptr, nullptr) == -1) {
        QIVENLog(pLog, QIVEN_LOG_ERR, "%s (%d): Server run error!", kModule, __LINE__);
        syslog(LOG_ERR, "Fail to search!\n");
        return -1;
    }
    if (rename(kListFile, kFinishedListFile) != 0) {
        syslog(LOG_ERR, "%s(%d): rename file failed! [%s]", kModule, __LINE__, strerror(errno));
    }
    return 0;
}

}  // namespace

int TAVOQIVENDumpHost(void) {
    using namespace qiven::search;
    if (!FileExists(kListFile) && TLIBCFileTouch(kListFile) < 0) {
        syslog(LOG_ERR, "%s(%d): Touch %s failed", kModule, __LINE__, kListFile);
        return -1;
    }
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, logToStderr);
    const GlobalLog globalLog(&log);
    const SearchKeys keys;
    if (!keys.blReady) {
        syslog(LOG_ERR, "Failed to initialize key for encrypted communication\n");
        return -1;
    }
    if (ErrQIVENSendQueryPkt() != 0) {
        syslog(LOG_ERR, "%s(%d): ErrQIVENSendQueryPkt() failed!", kModule, __LINE__);
        return -1;
    }
    return Listen(&log);
}
