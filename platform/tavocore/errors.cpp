// The last error of each thread.
#include <cstddef>
#include <cstring>

#include "tavocore.h"

namespace {

struct LastError {
    int iCode;
    int iLine;
    char szFile[256];
};

thread_local LastError t_error;

}  // namespace

void TLIBCErrSetEx(int iCode, const char *szFile, int iLine) {
    if (szFile == nullptr) szFile = "";
    const size_t cb = strnlen(szFile, sizeof t_error.szFile - 1);
    memmove(t_error.szFile, szFile, cb);  // the name may be the recorded one
    t_error.szFile[cb] = '\0';
    t_error.iCode = iCode;
    t_error.iLine = iLine;
}

int TLIBCErrGet(void) {
    return t_error.iCode;
}

int TLIBCErrGetEx(const char **pszFile, int *piLine) {
    if (pszFile != nullptr) *pszFile = t_error.szFile;
    if (piLine != nullptr) *piLine = t_error.iLine;
    return t_error.iCode;
}
