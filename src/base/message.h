// Messages and argument checks: every module reports through these functions.
#pragma once

#include <qiven/log.h>

namespace qiven::base {

// The module name and the line that a message shows. A call site passes the name alone; the default argument
// adds the line of the call site.
struct Where {
    const char *szModule;
    int iLine;
    // NOLINTNEXTLINE(google-explicit-constructor): lets a call site pass a name in the place of a Where.
    constexpr Where(const char *szName, int iCallerLine = __builtin_LINE())
        : szModule(szName), iLine(iCallerLine) {}
};

// Returns whether a message of this level would be put out.
inline bool IsOn(const QIVEN_LOG *pLog, int iLevel) {
    return pLog != nullptr && pLog->rgpfnLog[iLevel] != nullptr;
}

// Put out "MODULE:LINE " and the formatted text on level 1 or 2. A level that is off costs one test. The
// functions are cold, so that compilers optimise their callers for the case without a message.
[[gnu::cold]] void Error(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) QIVEN_PRINTF(3, 4);
[[gnu::cold]] void Debug(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) QIVEN_PRINTF(3, 4);

// Returns blOk, and reports a failed argument check with the text of its condition if blOk is false. It is
// inline, so that compilers and analysers know that the condition holds after the check.
inline bool Check(const QIVEN_LOG *pLog, Where where, bool blOk, const char *szCondition) {
    if (!blOk) Error(pLog, where, "Invaild Argument (%s)=[%d]\n", szCondition, 0);
    return blOk;
}

}  // namespace qiven::base
