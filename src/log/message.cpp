#include "log/message.h"

#include <cstdarg>
#include <cstdio>

namespace qiven::log {

namespace {

void Send(const QIVEN_LOG *pLog, int iLevel, Where where, const char *szFormat, va_list args) {
    char szText[QIVEN_LOG_MESSAGE_SIZE];
    // A format that cannot be converted leaves the buffer's content open.
    if (vsnprintf(szText, sizeof szText, szFormat, args) < 0) return;
    QIVENLog(pLog, iLevel, "%s:%d %s", where.szRoom, where.iLine, szText);
}

}  // namespace

void Error(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) {
    if (!IsOn(pLog, QIVEN_LOG_ERR)) return;
    va_list args;
    va_start(args, szFormat);
    Send(pLog, QIVEN_LOG_ERR, where, szFormat, args);
    va_end(args);
}

void Debug(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) {
    if (!IsOn(pLog, QIVEN_LOG_DEBUG)) return;
    va_list args;
    va_start(args, szFormat);
    Send(pLog, QIVEN_LOG_DEBUG, where, szFormat, args);
    va_end(args);
}

}  // namespace qiven::log
