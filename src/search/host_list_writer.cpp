// The lines of the host list: which answers become a line, and how it is appended.
#include <tavocore.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/descriptor.h"
#include "base/message.h"
#include "search/host_list.h"

namespace qiven::search {

namespace {

constexpr char kModule[] = "socket/socket_qiven_dump_host";
constexpr size_t kLineSize = 1024;

void AppendLine(const char *szPath, const char *szLine) {
    const base::Descriptor file(open(szPath, O_RDWR | O_APPEND | O_SYNC | O_CLOEXEC));
    if (!file.IsOpen()) {
        syslog(
            LOG_ERR,
            "open(%s, O_APPEND | O_SYNC | O_RDWR, S_IRWXU | S_IRWXG | S_IRWXO) failed! error_code[%d]=[%s]\n",
            szPath, errno, strerror(errno));
        return;
    }
    const size_t cbLine = strlen(szLine);
    if (write(file.fd, szLine, cbLine) < 0) {
        syslog(LOG_ERR, "%s: %s(%d) - write(%d, %s, %zd) %s\n", kModule, "addNasinfoToList", __LINE__,
               file.fd, szLine, static_cast<ssize_t>(cbLine), strerror(errno));
    }
}

}  // namespace

bool FileExists(const char *szPath) {
    struct stat status;
    return stat(szPath, &status) == 0;
}

int checkNasinfoType(nasinfo *pnasinfo) {
    return pnasinfo->ulPktType == QIVEN_PKT_ANSWER || pnasinfo->ulPktType == QIVEN_PKT_ANSWER_INST ? 1 : 0;
}

int addNasinfoToList(nasinfo *pnasinfo) {
    if (!base::Check(gpLog, kModule, nullptr != pnasinfo, "((void *)0) != pnasinfo")) return -1;
    if (pnasinfo->ulIP == 0 || BlTLIBIsHostname(pnasinfo->szHostName) != 1) return 0;

    char szAddr[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pnasinfo->ulIP, szAddr, sizeof szAddr);
    char szLine[kLineSize];
    snprintf(szLine, sizeof szLine, "%u,%u,%s,%s,%s\n", pnasinfo->ulModel, pnasinfo->ulField49,
             pnasinfo->szHostName, szAddr, pnasinfo->szHostIdent);
    const char *szPath = pnasinfo->ulPktType == QIVEN_PKT_ANSWER_INST ? kInstListFile : kListFile;
    if (FileExists(szPath)) AppendLine(szPath, szLine);
    return 0;
}

}  // namespace qiven::search
