// Reads a finished host list into a string hash of the platform.
#include <qiven/search.h>

#include <tavocore.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "search/host_list.h"

namespace qiven::search {

namespace {

constexpr char kModule[] = "socket/socket_qiven_get2hash";
constexpr int kErrArgument = 0x0D00;
constexpr int kErrOpen = 0x0900;
constexpr int kErrMemory = 0x0200;
constexpr int kListSize = 1024;
constexpr int kColumns = 5;
constexpr long kSmallestField49 = 240;

// The open finished list. Whatever the result, it is deleted after reading: each search is read once.
struct FinishedList {
    FILE *pfFile = nullptr;

    FinishedList() {
        // Without blocking: every user of the machine can put a FIFO of that name into /tmp.
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

// A device in the place of the list, such as /dev/zero, would never end.
bool IsDevice(FILE *pf) {
    struct stat status {};
    return fstat(fileno(pf), &status) != 0 || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

// Reads one line at a time, without its newline.
struct ListLine {
    char *szLine = static_cast<char *>(malloc(kListLineMax + 1));
    bool blTooLong = false;  // szLine holds only the beginning of the line

    ListLine() = default;
    ~ListLine() { free(szLine); }
    ListLine(const ListLine &) = delete;
    ListLine &operator=(const ListLine &) = delete;

    // False at the end and at a read error.
    bool Next(FILE *pf) {
        int ch = getc_unlocked(pf);
        if (ch == EOF) return false;
        size_t cbLine = 0;
        for (blTooLong = false; ch != EOF && ch != '\n'; ch = getc_unlocked(pf)) {
            blTooLong = cbLine == kListLineMax;
            if (!blTooLong) szLine[cbLine++] = static_cast<char>(ch);
        }
        szLine[cbLine] = '\0';
        return true;
    }
};

// The columns of a line.
struct Columns {
    TLIBC_SZLIST_HANDLE pList = TLIBCSzListAlloc(kListSize);

    Columns() = default;
    ~Columns() { TLIBCSzListFree(pList); }
    Columns(const Columns &) = delete;
    Columns &operator=(const Columns &) = delete;

    const char *Text(int iColumn) const { return TLIBCSzListGet(pList, iColumn); }
    long Number(int iColumn) const { return strtol(Text(iColumn), nullptr, 10); }
};

void AddLine(TLIBC_SZHASH_HANDLE *ppHash, const ListLine &line, Columns &columns) {
    if (line.blTooLong) {
        syslog(LOG_ERR, "%s:%d line too long", kModule, __LINE__);
        return;
    }
    if (TLIBCStrTrimSpace(line.szLine, 0) < 0) {
        syslog(LOG_ERR, "%s:%d TLIBCStrTrimSpace error!!", kModule, __LINE__);
        return;
    }
    TLIBCSzListRemoveAll(columns.pList);
    if (TLIBCStrSep(line.szLine, ",", &columns.pList) < kColumns) {
        syslog(LOG_ERR, "%s:%d field number < 5", kModule, __LINE__);
        return;
    }
    if (columns.Number(0) == 0) {
        syslog(LOG_ERR, "%s:%d model number == 0", kModule, __LINE__);
        return;
    }
    if (columns.Number(1) < kSmallestField49) return;
    char szKey[1024];
    snprintf(szKey, sizeof szKey, "%s(%s)", columns.Text(2), columns.Text(3));
    TLIBCSzHashSetValue(ppHash, szKey, columns.Text(3));
}

}  // namespace

}  // namespace qiven::search

using namespace qiven::search;

int TAVOQIVENGet2Hash(void *ppHash) {
    if (ppHash == nullptr) {
        TLIBCErrSetEx(kErrArgument, kModule, __LINE__);
        return -1;
    }
    const FinishedList list;
    if (list.pfFile == nullptr) {
        TLIBCErrSetEx(kErrOpen, kModule, __LINE__);
        return 0;
    }
    Columns columns;
    if (columns.pList == nullptr) {
        TLIBCErrSetEx(kErrMemory, kModule, __LINE__);
        return -1;
    }
    ListLine line;
    if (line.szLine == nullptr || IsDevice(list.pfFile)) return -1;
    auto *pHash = static_cast<TLIBC_SZHASH_HANDLE *>(ppHash);
    while (line.Next(list.pfFile))
        AddLine(pHash, line, columns);
    if (feof(list.pfFile) == 0 || ferror(list.pfFile) != 0) return -1;
    return TLIBCSzHashPairNum(*pHash);
}
