// Names are cut to the array that takes them: 64 bytes in a record, 16 in a request to the kernel.
#pragma once

#include <cstddef>
#include <cstring>

namespace qiven::iface {

// Copies as many bytes as leave room for the NUL.
template <std::size_t cbTo>
void CopyText(char (&szTo)[cbTo], const char *szFrom) {
    const std::size_t cb = strnlen(szFrom, cbTo - 1);
    std::memcpy(szTo, szFrom, cb);
    szTo[cb] = '\0';
}

}  // namespace qiven::iface
