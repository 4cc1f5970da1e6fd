#include "support/interpose.h"

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

std::vector<std::string> g_syslog;

void KeepSyslog(int iPriority, const char *szFormat, va_list args) {
    const Aside aside;
    char szText[2048];
    vsnprintf(szText, sizeof szText, szFormat, args);
    g_syslog.push_back(HideNumbers(std::to_string(iPriority) + "|" + szText));
}

}  // namespace

std::vector<std::string> TakeSyslog() {
    return std::exchange(g_syslog, {});
}

}  // namespace interpose

extern "C" {

time_t __real_time(time_t *pTime);
time_t __wrap_time(time_t *pTime) {
    return interpose::clock.blVirtual ? interpose::clock.now : __real_time(pTime);
}

int __real_poll(pollfd *rgPoll, nfds_t nPoll, int iTimeout);
int __wrap_poll(pollfd *rgPoll, nfds_t nPoll, int iTimeout) {
    interpose::Clock &clock = interpose::clock;
    ++clock.nWaits;
    if (clock.fnOnWait) {
        const interpose::Aside aside;
        clock.fnOnWait();
    }
    if (!clock.blVirtual) return __real_poll(rgPoll, nPoll, iTimeout);
    const int nReady = __real_poll(rgPoll, nPoll, clock.msWait);
    if (nReady == 0) clock.now += iTimeout / 1000;
    return nReady;
}

ssize_t __real_recvfrom(int fd, void *p, size_t cb, int iFlags, sockaddr *pFrom, socklen_t *pcbFrom);
ssize_t __wrap_recvfrom(int fd, void *p, size_t cb, int iFlags, sockaddr *pFrom, socklen_t *pcbFrom) {
    if (interpose::clock.iReadError != 0) {
        errno = interpose::clock.iReadError;
        return -1;
    }
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
// The name of syslog in a build with fortified functions.
void __wrap___syslog_chk(int iPriority, int /*iFlag*/, const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    interpose::KeepSyslog(iPriority, szFormat, args);
    va_end(args);
}

}  // extern "C"
