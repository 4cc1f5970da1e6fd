#include "socket/dump_host.h"

#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>

#include <tavocore.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/descriptor.h"
#include "log/message.h"
#include "socket/list_file.h"

namespace qiven::socket {

namespace {

constexpr char kRoom[] = "socket/socket_qiven_dump_host";
constexpr int kListenSeconds = 10;
constexpr size_t kLineSize = 1024;

bool Exists(const char *szPath) {
    struct stat status;
    return stat(szPath, &status) == 0;
}

void AppendLine(const char *szPath, const char *szLine) {
    const Descriptor file(open(szPath, O_RDWR | O_APPEND | O_SYNC | O_CLOEXEC));
    if (!file.IsOpen()) {
        syslog(
            LOG_ERR,
            "open(%s, O_APPEND | O_SYNC | O_RDWR, S_IRWXU | S_IRWXG | S_IRWXO) failed! error_code[%d]=[%s]\n",
            szPath, errno, strerror(errno));
        return;
    }
    const size_t cbLine = strlen(szLine);
    if (write(file.fd, szLine, cbLine) < 0) {
        syslog(LOG_ERR, "%s: %s(%d) - write(%d, %s, %zd) %s\n", kRoom, "addNasinfoToList", __LINE__, file.fd,
               szLine, static_cast<ssize_t>(cbLine), strerror(errno));
    }
}

// Points gpLog at the search's own record for as long as the search runs.
struct GlobalLog {
    explicit GlobalLog(QIVEN_LOG *pLog) { gpLog = pLog; }
    ~GlobalLog() { gpLog = nullptr; }
    GlobalLog(const GlobalLog &) = delete;
    GlobalLog &operator=(const GlobalLog &) = delete;
};

// Holds the process key pair for as long as the search runs.
struct ProcessKeys {
    const bool blReady = QIVENProcessKeyInit() == 0;
    ProcessKeys() = default;
    ~ProcessKeys() {
        if (blReady) QIVENProcessKeyCleanup();
    }
    ProcessKeys(const ProcessKeys &) = delete;
    ProcessKeys &operator=(const ProcessKeys &) = delete;
};

int Listen(QIVEN_LOG *pLog) {
    QIVEN_RECV recv{};
    recv.pfnFilter = checkNasinfoType;
    recv.pfnHandler = addNasinfoToList;
    QIVEN_CONN conn{"0.0.0.0", QIVEN_PORT, kListenSeconds, nullptr, pLog};
    if (QIVENUDPServer(&conn, &recv, nullptr, nullptr) == -1) {
        QIVENLog(pLog, QIVEN_LOG_ERR, "%s (%d): Server run error!", kRoom, __LINE__);
        syslog(LOG_ERR, "Fail to search!\n");
        return -1;
    }
    if (rename(kListFile, kFinishedListFile) != 0) {
        syslog(LOG_ERR, "%s(%d): rename file failed! [%s]", kRoom, __LINE__, strerror(errno));
    }
    return 0;
}

}  // namespace

int checkNasinfoType(nasinfo *pnasinfo) {
    return pnasinfo->ulPktType == QIVEN_PKT_ANSWER || pnasinfo->ulPktType == QIVEN_PKT_ANSWER_INST ? 1 : 0;
}

int addNasinfoToList(nasinfo *pnasinfo) {
    if (!log::Check(gpLog, kRoom, nullptr != pnasinfo, "((void *)0) != pnasinfo")) return -1;
    if (pnasinfo->ulIP == 0 || BlTLIBIsHostname(pnasinfo->szHostName) != 1) return 0;

    char szAddr[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pnasinfo->ulIP, szAddr, sizeof szAddr);
    char szLine[kLineSize];
    snprintf(szLine, sizeof szLine, "%u,%u,%s,%s,%s\n", pnasinfo->ulModel, pnasinfo->ulField49,
             pnasinfo->szHostName, szAddr, pnasinfo->szHostIdent);
    const char *szPath = pnasinfo->ulPktType == QIVEN_PKT_ANSWER_INST ? kInstListFile : kListFile;
    if (Exists(szPath)) AppendLine(szPath, szLine);
    return 0;
}

int logToStderr(const char *szMessage) {
    fputs(szMessage, stderr);
    return 0;
}

}  // namespace qiven::socket

using namespace qiven::socket;

int TAVOQIVENDumpHost(void) {
    if (!Exists(kListFile) && TLIBCFileTouch(kListFile) < 0) {
        syslog(LOG_ERR, "%s(%d): Touch %s failed", kRoom, __LINE__, kListFile);
        return -1;
    }
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, logToStderr);
    const GlobalLog globalLog(&log);
    const ProcessKeys keys;
    if (!keys.blReady) {
        syslog(LOG_ERR, "Failed to initialize key for encrypted communication\n");
        return -1;
    }
    if (ErrQIVENSendQueryPkt() != 0) {
        syslog(LOG_ERR, "%s(%d): ErrQIVENSendQueryPkt() failed!", kRoom, __LINE__);
        return -1;
    }
    return Listen(&log);
}
