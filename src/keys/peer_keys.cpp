// The store of the public keys of peers, in a string hash of the platform.
#include <qiven/keys.h>

#include <tavocore.h>

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace qiven::keys {

namespace {

constexpr time_t kFirstAgeLimit = 86400;
constexpr time_t kLongUptime = 172800;
// Pruning stops when the age limit is this short.
constexpr time_t kShortestAgeLimit = 600;
constexpr int kListSize = 2048;

constexpr size_t kEntryNameSize = 64;   // peer name, "+", eight digits, NUL
constexpr size_t kEntryValueSize = 74;  // 64 key digits, ",", eight stamp digits, NUL
static_assert(QIVEN_PEER_NAME_MAX + 1 + 8 + 1 == kEntryNameSize);
static_assert(QIVEN_KEY_HEX_SIZE - 1 + 1 + 8 + 1 == kEntryValueSize);

// The store. Created when the first key is added; it exists until the process ends.
TLIBC_SZHASH_HANDLE g_pStore = nullptr;

struct FreeNameList {
    void operator()(TLIBC_SZLIST_HANDLE pList) const { TLIBCSzListFree(pList); }
};
using NameList = std::unique_ptr<std::remove_pointer_t<TLIBC_SZLIST_HANDLE>, FreeNameList>;

// Whole seconds since boot. The wall clock would make ages jump whenever it is set.
time_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

struct EntryName {
    char szName[kEntryNameSize];
    EntryName(const char *szPeer, uint32_t ulProcessID) {
        snprintf(szName, sizeof szName, "%s+%08x", szPeer, ulProcessID);
    }
};

// A longer peer name would be cut, and its entry name could then be that of another peer.
bool IsPeer(const char *szPeer, uint32_t ulProcessID) {
    return szPeer != nullptr && ulProcessID != 0 &&
           strnlen(szPeer, QIVEN_PEER_NAME_MAX + 1) <= QIVEN_PEER_NAME_MAX;
}

// Whether the text fits into an entry and can be read back: a comma ends the key text of a value.
bool IsStorable(const char *szPublicKeyHex) {
    return szPublicKeyHex != nullptr && strnlen(szPublicKeyHex, QIVEN_KEY_HEX_SIZE) < QIVEN_KEY_HEX_SIZE &&
           strchr(szPublicKeyHex, ',') == nullptr;
}

int writeKeyEntry(const char *szPeer, uint32_t ulProcessID, const char *szPublicKeyHex) {
    if (!IsPeer(szPeer, ulProcessID)) return -1;
    char szValue[kEntryValueSize];
    snprintf(szValue, sizeof szValue, "%s,%lx", szPublicKeyHex, static_cast<unsigned long>(Now()));
    TLIBCSzHashSetValue(&g_pStore, EntryName(szPeer, ulProcessID).szName, szValue);
    return 0;
}

// Removes an entry that was written before the threshold. False if the store is damaged.
bool PruneEntry(const char *szName, long lThreshold) {
    if (szName == nullptr) return false;
    const char *szValue = TLIBCSzHashGetValue(g_pStore, szName);
    if (szValue == nullptr) return false;
    const char *szComma = strchr(szValue, ',');
    if (szComma == nullptr) return false;
    if (strtol(szComma + 1, nullptr, 16) >= lThreshold) return true;
    return TLIBCSzHashRemoveKey(g_pStore, szName) != 0;
}

bool PrunePass(long lThreshold) {
    TLIBC_SZLIST_HANDLE pNames = TLIBCSzListAlloc(kListSize);
    if (pNames == nullptr) return false;
    const int nNames = TLIBCSzHashEnumKey(g_pStore, &pNames);
    const NameList list(pNames);
    if (nNames < 0) return false;
    for (int i = 0; i < nNames; ++i) {
        if (!PruneEntry(TLIBCSzListGet(list.get(), i), lThreshold)) return false;
    }
    return true;
}

bool IsFull() {
    return TLIBCSzHashPairNum(g_pStore) >= QIVEN_KEYS_MAX;
}

// Makes space for one more entry: removes old entries, with an age limit that is halved until there is
// space, and empties the store if that does not help.
bool MakeSpace() {
    const time_t now = Now();
    time_t ageLimit = now < kLongUptime ? now / 2 : kFirstAgeLimit;
    while (IsFull() && ageLimit > kShortestAgeLimit) {
        if (!PrunePass(static_cast<long>(now - ageLimit))) return false;
        ageLimit /= 2;
    }
    if (IsFull()) TLIBCHashRemoveAll(g_pStore);
    return true;
}

}  // namespace

}  // namespace qiven::keys

using namespace qiven::keys;

int QIVENAddKey(const char *szPeer, uint32_t ulProcessID, const char *szPublicKeyHex) {
    if (!IsPeer(szPeer, ulProcessID) || !IsStorable(szPublicKeyHex)) return -1;
    if (g_pStore == nullptr) g_pStore = TLIBCSzHashAlloc(0);
    if (g_pStore == nullptr || !MakeSpace()) return -1;
    return writeKeyEntry(szPeer, ulProcessID, szPublicKeyHex);
}

int QIVENGetKey(const char *szPeer, uint32_t ulProcessID, char *szOutput) {
    if (!IsPeer(szPeer, ulProcessID) || szOutput == nullptr || g_pStore == nullptr) return -1;
    const char *szValue = TLIBCSzHashGetValue(g_pStore, EntryName(szPeer, ulProcessID).szName);
    if (szValue == nullptr) return -1;
    const char *szComma = strchr(szValue, ',');
    if (szComma == nullptr || szComma - szValue >= QIVEN_KEY_HEX_SIZE) return -1;
    const auto cbKey = static_cast<size_t>(szComma - szValue);
    memcpy(szOutput, szValue, cbKey);
    szOutput[cbKey] = '\0';
    return writeKeyEntry(szPeer, ulProcessID, szOutput);
}

int QIVENRemoveKey(const char *szPeer, uint32_t ulProcessID) {
    if (!IsPeer(szPeer, ulProcessID) || g_pStore == nullptr) return -1;
    return TLIBCSzHashRemoveKey(g_pStore, EntryName(szPeer, ulProcessID).szName) != 0 ? 0 : -1;
}

int QIVENRemoveAllKeys(void) {
    if (g_pStore == nullptr) return -1;
    TLIBCHashRemoveAll(g_pStore);
    return 0;
}
