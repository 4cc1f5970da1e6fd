// The one place that builds messages and reports failed argument checks.
#pragma once

#include <qiven/log.h>

namespace qiven::log {

// Where a message comes from: the bare name of the room, as messages show it, and the caller's line. Made
// from the room name alone; the default argument takes the line of the place that names the room.
struct Where {
    const char *szRoom;
    int iLine;
    // NOLINTNEXTLINE(google-explicit-constructor): call sites pass a room name and get the line with it.
    constexpr Where(const char *szName, int iCallerLine = __builtin_LINE())
        : szRoom(szName), iLine(iCallerLine) {}
};

// Whether a message of this level would go anywhere.
inline bool IsOn(const QIVEN_LOG *pLog, int iLevel) {
    return pLog != nullptr && pLog->rgpfnLog[iLevel] != nullptr;
}

// Sends "%s:%d " with room and line, followed by the formatted text, to a level. Costs one test when it is
// off. Cold, so that compilers lay out their callers for the case that there is nothing to say.
[[gnu::cold]] void Error(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) QIVEN_PRINTF(3, 4);
[[gnu::cold]] void Debug(const QIVEN_LOG *pLog, Where where, const char *szFormat, ...) QIVEN_PRINTF(3, 4);

// Returns blOk; when it is false, reports the argument check whose text is given. Inline, so that compilers
// and analysers see that what was checked holds afterwards.
inline bool Check(const QIVEN_LOG *pLog, Where where, bool blOk, const char *szCondition) {
    if (!blOk) Error(pLog, where, "Invaild Argument (%s)=[%d]\n", szCondition, 0);
    return blOk;
}

}  // namespace qiven::log
