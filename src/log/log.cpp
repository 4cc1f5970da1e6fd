// The logger: formats a message and passes it to the output function of its level.
#include <qiven/log.h>

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

QIVEN_LOG *gpLog = nullptr;

namespace {

bool IsLevel(int iLevel) {
    return iLevel == QIVEN_LOG_ERR || iLevel == QIVEN_LOG_DEBUG;
}

}  // namespace

int QIVENLogFuncSet(QIVEN_LOG *pLog, int iLevel, QIVEN_LOG_FUNC pfnLog) {
    if (pLog == nullptr || !IsLevel(iLevel)) return -1;
    pLog->rgpfnLog[iLevel] = pfnLog;
    return 0;
}

QIVEN_LOG_FUNC QIVENLogFuncGet(const QIVEN_LOG *pLog, int iLevel) {
    if (pLog == nullptr || !IsLevel(iLevel)) return nullptr;
    // cppcheck-suppress CastIntegerToAddressAtReturn ; mistakes the function pointer for its result
    return pLog->rgpfnLog[iLevel];
}

int QIVENLogLock(const QIVEN_LOG *pLog, int iLock) {
    if (pLog == nullptr) return -1;
    return pLog->pfnLock == nullptr ? 0 : pLog->pfnLock(iLock);
}

int QIVENLog(const QIVEN_LOG *pLog, int iLevel, const char *szFormat, ...) {
    if (pLog == nullptr || !IsLevel(iLevel) || szFormat == nullptr) return -1;
    const QIVEN_LOG_FUNC pfnLog = pLog->rgpfnLog[iLevel];
    if (pfnLog == nullptr) return 0;
    if (QIVENLogLock(pLog, 1) == -1) return -1;

    char szMessage[QIVEN_LOG_MESSAGE_SIZE];
    va_list args;
    va_start(args, szFormat);
    // If the format cannot be converted, the content of the buffer is undefined: an empty message is put out.
    if (vsnprintf(szMessage, sizeof szMessage, szFormat, args) < 0) szMessage[0] = '\0';
    va_end(args);

    const int iResult = pfnLog(szMessage);
    QIVENLogLock(pLog, 0);
    return iResult;
}

int QIVENLogDefSyslogErr(const char *szMessage) {
    if (szMessage == nullptr) return -1;
    syslog(LOG_ERR, "%s", szMessage);
    return 0;
}

int QIVENLogDefSyslogDebug(const char *szMessage) {
    if (szMessage == nullptr) return -1;
    syslog(LOG_DEBUG, "%s", szMessage);
    return 0;
}

int QIVENLogDefConsole(const char *szMessage) {
    if (szMessage == nullptr) return -1;
    printf("%s", szMessage);
    return 0;
}
