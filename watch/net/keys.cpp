#include "keys.h"

#include <qiven/packet.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>

namespace qiven::watch {

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
unsigned nUsers = 0;
bool blMadeHere = false;

struct Lock {
    Lock() { pthread_mutex_lock(&mutex); }
    ~Lock() { pthread_mutex_unlock(&mutex); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
};

// Under the lock.
bool MakeAndRead(Keys &keys) {
    static constexpr char kDigits[] = "0123456789abcdef";
    if (QIVENProcessKeyInited() == 0) {
        if (QIVENProcessKeyInit() != 0) return false;
        blMadeHere = true;
    }
    const unsigned char *pKey = QIVENProcessPublicKeyGet();
    if (pKey == nullptr) return false;
    for (size_t i = 0; i < QIVEN_KEY_SIZE; ++i) {
        keys.szPublicKeyHex[2 * i] = kDigits[pKey[i] >> 4];
        keys.szPublicKeyHex[2 * i + 1] = kDigits[pKey[i] & 15];
    }
    keys.szPublicKeyHex[sizeof keys.szPublicKeyHex - 1] = '\0';
    keys.ulProcessID = QIVENProcessGetID();
    return true;
}

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

int AcquireKeys(Keys &keys) {
    const Lock lock;
    if (!MakeAndRead(keys)) return -ENOKEY;
    ++nUsers;
    keys.blUsed = true;
    return 0;
}

void ReleaseKeys(Keys &keys) {
    if (!keys.blUsed) return;
    keys.blUsed = false;
    const Lock lock;
    if (--nUsers > 0 || !blMadeHere) return;
    blMadeHere = false;
    QIVENProcessKeyCleanup();
}

void RefreshKeys(Keys &keys) {
    const Lock lock;
    MakeAndRead(keys);
}

bool IsKeyText(const char *szHex, size_t cbHex) {
    if (strnlen(szHex, cbHex) != QIVEN_KEY_HEX_SIZE - 1) return false;
    for (size_t i = 0; i < QIVEN_KEY_HEX_SIZE - 1; ++i) {
        if (!IsHexDigit(szHex[i])) return false;
    }
    return true;
}

Verdict ReadDatagram(const Keys &keys, bool blOpen, const unsigned char *pb, uint16_t cb, nasinfo &record,
                     bool &blSealed) {
    blSealed = cb > sizeof stQIVENHeaderEncrypted &&
               memcmp(pb, stQIVENHeaderEncrypted, sizeof stQIVENHeaderEncrypted) == 0;
    if (!blSealed)
        return QIVENPacketRead(nullptr, pb, cb, &record) > 0 ? Verdict::kRecord : Verdict::kRefused;
    if (!keys.blUsed || !blOpen) return Verdict::kForOthers;
    const Lock lock;
    const bool blOpened = QIVENPacketReadEncrypted(nullptr, pb, cb, &record) > 0;
    return blOpened ? Verdict::kRecord : Verdict::kForOthers;
}

}  // namespace qiven::watch
