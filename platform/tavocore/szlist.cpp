// The string list.
#include "szlist.h"

#include <cstddef>
#include <exception>
#include <memory>

TLIBC_SZLIST_HANDLE TLIBCSzListAlloc(int nSize) {
    if (nSize < 0) return nullptr;
    try {
        auto pList = std::make_unique<TLIBC_SZLIST>();
        pList->rgItem.reserve(static_cast<size_t>(nSize));
        return pList.release();
    } catch (const std::exception &) {
        return nullptr;
    }
}

const char *TLIBCSzListGet(TLIBC_SZLIST_HANDLE pList, int nIndex) {
    if (pList == nullptr || nIndex < 0) return nullptr;
    const auto i = static_cast<size_t>(nIndex);
    return i < pList->rgItem.size() ? pList->rgItem[i].c_str() : nullptr;
}

void TLIBCSzListRemoveAll(TLIBC_SZLIST_HANDLE pList) {
    if (pList != nullptr) pList->rgItem.clear();
}

void TLIBCSzListFree(TLIBC_SZLIST_HANDLE pList) {
    delete pList;
}
