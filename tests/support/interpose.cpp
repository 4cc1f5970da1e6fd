#include "support/interpose.h"

#include <qiven/keys.h>
#include <qiven/log.h>

#include <tavocore.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <regex>
#include <utility>

namespace interpose {

Clock clock;

std::string HideNumbers(const std::string &text) {
    static const std::regex numbers("(_host:|_host\\(|_udp:|hash:|List\\(|sockfd=|write\\()[0-9]+");
    return std::regex_replace(text, numbers, "$1#");
}

namespace {

std::string g_call;
int g_nBefore = 0;
int g_iErrno = 0;
std::vector<std::string> g_syslog;

bool Fails(const char *szCall) {
    if (g_call != szCall || g_nBefore-- > 0) return false;
    g_call.clear();
    errno = g_iErrno;
    return true;
}

void KeepSyslog(int iPriority, const char *szFormat, va_list args) {
    char szText[2048];
    vsnprintf(szText, sizeof szText, szFormat, args);
    g_syslog.push_back(HideNumbers(std::to_string(iPriority) + "|" + szText));
}

}  // namespace

void Fail(const std::string &call, int nBefore, int iErrno) {
    g_call = call;
    g_nBefore = nBefore;
    g_iErrno = iErrno;
}

bool IsPending() {
    return !g_call.empty();
}

std::vector<std::string> TakeSyslog() {
    return std::exchange(g_syslog, {});
}

}  // namespace interpose

using interpose::Fails;

extern "C" {

// NOLINTBEGIN(bugprone-macro-parentheses): parameter lists are no expressions
#define FAILING(result, name, failed, params, args)        \
    result __real_##name params;                           \
    result __wrap_##name params {                          \
        return Fails(#name) ? failed : __real_##name args; \
    }
FAILING(int, socket, -1, (int a, int b, int c), (a, b, c))
FAILING(int, setsockopt, -1, (int a, int b, int c, const void *d, socklen_t e), (a, b, c, d, e))
FAILING(int, bind, -1, (int a, const sockaddr *b, socklen_t c), (a, b, c))
FAILING(ssize_t, sendto, -1, (int a, const void *b, size_t c, int d, const sockaddr *e, socklen_t f),
        (a, b, c, d, e, f))
FAILING(ssize_t, write, -1, (int a, const void *b, size_t c), (a, b, c))
FAILING(ssize_t, getdelim, -1, (char **a, size_t *b, int c, FILE *d), (a, b, c, d))
FAILING(int, rename, -1, (const char *a, const char *b), (a, b))
FAILING(void *, calloc, nullptr, (size_t a, size_t b), (a, b))
FAILING(FILE *, fdopen, nullptr, (int a, const char *b), (a, b))
FAILING(int, QIVENSocketInit, -1, (), ())
FAILING(int, QIVENProcessKeyInit, -1, (), ())
FAILING(const unsigned char *, QIVENProcessPublicKeyGet, nullptr, (), ())
FAILING(TLIBC_SZLIST_HANDLE, TLIBCSzListAlloc, nullptr, (int a), (a))
FAILING(int, TLIBCStrTrimSpace, -1, (char *a, int b), (a, b))
#undef FAILING
// NOLINTEND(bugprone-macro-parentheses)

int __real_open(const char *szPath, int iFlags, ...);
int __wrap_open(const char *szPath, int iFlags, ...) {
    va_list args;
    va_start(args, iFlags);
    const mode_t mode = (iFlags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return Fails("open") ? -1 : __real_open(szPath, iFlags, mode);
}

time_t __real_time(time_t *pTime);
time_t __wrap_time(time_t *pTime) {
    return interpose::clock.blVirtual ? interpose::clock.now : __real_time(pTime);
}

int __real_poll(pollfd *rgPoll, nfds_t nPoll, int iTimeout);
int __wrap_poll(pollfd *rgPoll, nfds_t nPoll, int iTimeout) {
    interpose::Clock &clock = interpose::clock;
    ++clock.nWaits;
    if (clock.fnOnWait) clock.fnOnWait();
    if (Fails("poll")) return -1;
    if (!clock.blVirtual) return __real_poll(rgPoll, nPoll, iTimeout);
    const int nReady = __real_poll(rgPoll, nPoll, clock.msWait);
    if (nReady == 0) clock.now += iTimeout / 1000;
    return nReady;
}

ssize_t __real_recvfrom(int fd, void *p, size_t cb, int iFlags, sockaddr *pFrom, socklen_t *pcbFrom);
ssize_t __wrap_recvfrom(int fd, void *p, size_t cb, int iFlags, sockaddr *pFrom, socklen_t *pcbFrom) {
    if (Fails("recvfrom")) return -1;
    const ssize_t cbRead = __real_recvfrom(fd, p, cb, iFlags, pFrom, pcbFrom);
    if (cbRead >= 0) interpose::clock.now += interpose::clock.nSecondsPerDatagram;
    return cbRead;
}

void __wrap_syslog(int iPriority, const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    interpose::KeepSyslog(iPriority, szFormat, args);
    va_end(args);
}
// What syslog is called in a build with fortified functions.
void __wrap___syslog_chk(int iPriority, int /*iFlag*/, const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    interpose::KeepSyslog(iPriority, szFormat, args);
    va_end(args);
}

}  // extern "C"
