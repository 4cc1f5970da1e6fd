// Formatting of messages.
#include "base/message.h"

#include <cstdarg>
#include <cstdio>

namespace qiven::base {

namespace {

void Send(const QIVEN_LOG *pLog, int iLevel, Where where, const char *szFormat, va_list args) {
    char szText[QIVEN_LOG_MESSAGE_SIZE];
    // If the format cannot be converted, the content of the buffer is undefined.
    if (vsnprintf(szText, sizeof szText, szFormat, args) < 0) return;
    QIVENLog(pLog, iLevel, "%s:%d %s", where.szModule, where.iLine, szText);
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

}  // namespace qiven::base
