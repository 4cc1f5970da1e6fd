// The key pair of the process, which all handles share. The lock is what makes it safe to use handles in
// several threads: opening a packet makes the secret key readable for a moment, for the whole process.
#pragma once

#include <qiven/keys.h>
#include <qiven/nasinfo.h>

#include <cstddef>
#include <cstdint>

namespace qiven::watch {

struct Keys {
    bool blUsed = false;
    uint32_t ulProcessID = 0;
    char szPublicKeyHex[QIVEN_KEY_HEX_SIZE] = "";
};

// 0 or a negative errno. Release only what was acquired, and never in a forked child.
int AcquireKeys(Keys &keys);
void ReleaseKeys(Keys &keys);
// Makes and reads them again if somebody else has released them meanwhile.
void RefreshKeys(Keys &keys);

bool IsKeyText(const char *szHex, size_t cbHex);

enum class Verdict { kRecord, kRefused, kForOthers };
// Reads a datagram of either kind, a sealed one only if it may be opened.
Verdict ReadDatagram(const Keys &keys, bool blOpen, const unsigned char *pb, uint16_t cb, nasinfo &record,
                     bool &blSealed);

}  // namespace qiven::watch
