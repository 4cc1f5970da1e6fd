// The string hash.
#include <exception>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "szlist.h"
#include "tavocore.h"

// An ordered tree, because keys come from strangers (host names from packets, names of peers): no choice of
// keys makes it slow, as colliding keys make a hash table. Its pairs never move, so the values that it
// returns stay valid. Looking up by a view allocates nothing and cannot fail.
struct TLIBC_SZHASH {
    std::map<std::string, std::string, std::less<>> mapPair;
};

TLIBC_SZHASH_HANDLE TLIBCSzHashAlloc(int nSize) {
    return nSize < 0 ? nullptr : new (std::nothrow) TLIBC_SZHASH;
}

void TLIBCSzHashFree(TLIBC_SZHASH_HANDLE pHash) {
    delete pHash;
}

int TLIBCSzHashSetValue(TLIBC_SZHASH_HANDLE *ppHash, const char *szKey, const char *szValue) {
    if (ppHash == nullptr || *ppHash == nullptr || szKey == nullptr || szValue == nullptr) return -1;
    try {
        // Both texts are copied before the tree changes: the caller may pass text that this hash owns.
        std::string strKey = szKey;
        std::string strValue = szValue;
        (*ppHash)->mapPair.insert_or_assign(std::move(strKey), std::move(strValue));
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}

const char *TLIBCSzHashGetValue(TLIBC_SZHASH_HANDLE pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) return nullptr;
    const auto it = pHash->mapPair.find(std::string_view(szKey));
    return it == pHash->mapPair.end() ? nullptr : it->second.c_str();
}

int TLIBCSzHashRemoveKey(TLIBC_SZHASH_HANDLE pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) return 0;
    const auto it = pHash->mapPair.find(std::string_view(szKey));
    if (it == pHash->mapPair.end()) return 0;
    pHash->mapPair.erase(it);
    return 1;
}

int TLIBCSzHashPairNum(TLIBC_SZHASH_HANDLE pHash) {
    return pHash == nullptr ? 0 : static_cast<int>(pHash->mapPair.size());
}

int TLIBCSzHashEnumKey(TLIBC_SZHASH_HANDLE pHash, TLIBC_SZLIST_HANDLE *ppList) {
    if (pHash == nullptr || ppList == nullptr || *ppList == nullptr) return -1;
    try {
        std::vector<std::string> rgKey;
        rgKey.reserve(pHash->mapPair.size());
        for (const auto &pair : pHash->mapPair)
            rgKey.push_back(pair.first);
        (*ppList)->Append(std::move(rgKey));
        return TLIBCSzHashPairNum(pHash);
    } catch (const std::exception &) {
        return -1;
    }
}

void TLIBCHashRemoveAll(TLIBC_SZHASH_HANDLE pHash) {
    if (pHash != nullptr) pHash->mapPair.clear();
}
