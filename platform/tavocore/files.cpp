// Creation of files in directories that every user can write.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tavocore.h"

namespace {

// The errno for a path that is not a regular file, as open() would set it.
int ErrorOfType(mode_t mode) {
    if (S_ISLNK(mode)) return ELOOP;
    return S_ISDIR(mode) ? EISDIR : EEXIST;
}

}  // namespace

int TLIBCFileTouch(const char *szPath) {
    if (szPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    // Another process may rename the file between open() and lstat(): try again, but not without end.
    for (int nTry = 0; nTry < 3; ++nTry) {
        // Every user can write /tmp: O_EXCL refuses what another user has put there, links in particular.
        const int fd = open(szPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd >= 0) {
            close(fd);
            return 0;
        }
        if (errno != EEXIST) return -1;

        struct stat st {};
        if (lstat(szPath, &st) == 0) {
            if (S_ISREG(st.st_mode)) return 0;
            errno = ErrorOfType(st.st_mode);
            return -1;
        }
        if (errno != ENOENT) return -1;
    }
    return -1;
}
