#include <qiven/search.h>

#include <tavocore.h>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "socket/list_file.h"

namespace qiven::socket {

namespace {

constexpr char kRoom[] = "socket/socket_qiven_get2hash";
constexpr int kErrArgument = 0x0D00;
constexpr int kErrOpen = 0x0900;
constexpr int kErrMemory = 0x0200;
constexpr int kListSize = 1024;
constexpr int kColumns = 5;
constexpr long kSmallestField49 = 240;

// The finished list, deleted when the reading ends, however it ends: every search is read once.
struct FinishedList {
    FILE *pfFile = nullptr;

    FinishedList() {
        // Not blocking, so that a FIFO of that name, which anybody may put into /tmp, cannot hold the caller.
        const int fd = open(kFinishedListFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) return;
        pfFile = fdopen(fd, "r");
        if (pfFile == nullptr) close(fd);
    }
    ~FinishedList() {
        if (pfFile == nullptr) return;
        fclose(pfFile);
        unlink(kFinishedListFile);
    }
    FinishedList(const FinishedList &) = delete;
    FinishedList &operator=(const FinishedList &) = delete;
};

struct Line {
    char *szText = nullptr;
    size_t cbBuffer = 0;

    Line() = default;
    ~Line() { free(szText); }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
};

struct Columns {
    TLIBC_SZLIST_HANDLE pList = TLIBCSzListAlloc(kListSize);

    Columns() = default;
    ~Columns() { TLIBCSzListFree(pList); }
    Columns(const Columns &) = delete;
    Columns &operator=(const Columns &) = delete;

    const char *Text(int iColumn) const { return TLIBCSzListGet(pList, iColumn); }
    long Number(int iColumn) const { return strtol(Text(iColumn), nullptr, 10); }
};

void AddLine(TLIBC_SZHASH_HANDLE *ppHash, char *szLine, Columns &columns) {
    if (TLIBCStrTrimSpace(szLine, 0) < 0) {
        syslog(LOG_ERR, "%s:%d TLIBCStrTrimSpace error!!", kRoom, __LINE__);
        return;
    }
    TLIBCSzListRemoveAll(columns.pList);
    if (TLIBCStrSep(szLine, ",", &columns.pList) < kColumns) {
        syslog(LOG_ERR, "%s:%d field number < 5", kRoom, __LINE__);
        return;
    }
    if (columns.Number(0) == 0) {
        syslog(LOG_ERR, "%s:%d model number == 0", kRoom, __LINE__);
        return;
    }
    if (columns.Number(1) < kSmallestField49) return;
    char szKey[1024];
    snprintf(szKey, sizeof szKey, "%s(%s)", columns.Text(2), columns.Text(3));
    TLIBCSzHashSetValue(ppHash, szKey, columns.Text(3));
}

}  // namespace

}  // namespace qiven::socket

using namespace qiven::socket;

int TAVOQIVENGet2Hash(struct TLIBC_SZHASH **ppHash) {
    if (ppHash == nullptr) {
        TLIBCErrSetEx(kErrArgument, kRoom, __LINE__);
        return -1;
    }
    const FinishedList list;
    if (list.pfFile == nullptr) {
        TLIBCErrSetEx(kErrOpen, kRoom, __LINE__);
        return 0;
    }
    Columns columns;
    if (columns.pList == nullptr) {
        TLIBCErrSetEx(kErrMemory, kRoom, __LINE__);
        return -1;
    }
    Line line;
    while (getdelim(&line.szText, &line.cbBuffer, '\n', list.pfFile) >= 0)
        AddLine(ppHash, line.szText, columns);
    if (feof(list.pfFile) == 0 || ferror(list.pfFile) != 0) return -1;
    return TLIBCSzHashPairNum(*ppHash);
}
