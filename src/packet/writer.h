// What the plain and the sealed writer share.
#pragma once

#include <qiven/log.h>

#include <cstdlib>

#include "log/message.h"
#include "packet/field_table.h"

namespace qiven::packet {

// Makes the caller's heap buffer hold at least cbNeeded bytes, enlarging it to exactly that; without memory,
// reports it and leaves buffer and capacity as they are.
template <class Byte>
bool EnsureCapacity(const QIVEN_LOG *pLog, log::Where where, Byte *&szBuffer, int &cbBuffer, int cbNeeded) {
    if (cbNeeded <= cbBuffer) return true;
    void *pLarger = realloc(szBuffer, static_cast<size_t>(cbNeeded));
    if (pLarger == nullptr) {
        log::Error(pLog, where, "Reallocate memory failed!\n");
        return false;
    }
    szBuffer = static_cast<Byte *>(pLarger);
    cbBuffer = cbNeeded;
    return true;
}

}  // namespace qiven::packet
