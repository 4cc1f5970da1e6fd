// The packet buffer of the caller, which the plain and the sealed writer may enlarge.
#pragma once

#include <qiven/log.h>

#include <cstdlib>

#include "base/message.h"

namespace qiven::packet {

// Enlarges the heap buffer to exactly cbNeeded bytes if it is smaller. False, with a message and an unchanged
// buffer, without memory.
template <class Byte>
bool EnsureCapacity(const QIVEN_LOG *pLog, base::Where where, Byte *&szBuffer, int &cbBuffer, int cbNeeded) {
    if (cbNeeded <= cbBuffer) return true;
    void *pLarger = realloc(szBuffer, static_cast<size_t>(cbNeeded));
    if (pLarger == nullptr) {
        base::Error(pLog, where, "Reallocate memory failed!\n");
        return false;
    }
    szBuffer = static_cast<Byte *>(pLarger);
    cbBuffer = cbNeeded;
    return true;
}

}  // namespace qiven::packet
