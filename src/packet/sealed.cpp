// Sealed packets: writer and reader.
#include <qiven/keys.h>
#include <qiven/packet.h>

#include <sodium.h>

#include <cstring>

#include "base/message.h"
#include "packet/cursor.h"
#include "packet/field_table.h"
#include "packet/packet_buffer.h"

using qiven::base::Check;
using qiven::base::Debug;
using qiven::base::Error;
using qiven::base::Where;

namespace qiven::packet {

namespace {

constexpr int kHeaderSize = sizeof stQIVENHeaderEncrypted;

// False if the key text does not convert to exactly one key.
bool Seal(Bytes rgbPlain, const char *szPublicKeyHex, unsigned char *pBox) {
    unsigned char rgbKey[crypto_box_PUBLICKEYBYTES];
    size_t cbKey = 0;
    if (sodium_init() < 0) return false;
    if (sodium_hex2bin(rgbKey, sizeof rgbKey, szPublicKeyHex, strlen(szPublicKeyHex), nullptr, &cbKey,
                       nullptr) != 0 ||
        cbKey != sizeof rgbKey) {
        return false;
    }
    return crypto_box_seal(pBox, rgbPlain.data(), rgbPlain.size(), rgbKey) == 0;
}

// Whether the input is a sealed packet. If it is, the cursor is left at the box.
bool TakeSealedHeader(ReadCursor &cursor) {
    ReadCursor ahead = cursor;
    Bytes rgbHeader;
    if (!ahead.Take(kHeaderSize, rgbHeader) || ahead.AtEnd()) return false;
    if (memcmp(rgbHeader.data(), stQIVENHeaderEncrypted, kHeaderSize) != 0) return false;
    cursor = ahead;
    return true;
}

enum class Opening { kOpened, kNoKey, kFailed };

// Opens a box into pPlain, which holds QIVEN_PACKET_MAX bytes. Only then is the secret key readable.
Opening Open(Bytes rgbBox, unsigned char *pPlain) {
    const unsigned char *pPublicKey = QIVENProcessPublicKeyGet();
    if (pPublicKey == nullptr) return Opening::kNoKey;
    const unsigned char *pSecretKey = QIVENProcessSecretKeyAcquire();
    if (pSecretKey == nullptr) return Opening::kNoKey;
    const bool blOpened =
        rgbBox.size() <= QIVEN_PACKET_MAX + QIVEN_SEAL_OVERHEAD &&
        crypto_box_seal_open(pPlain, rgbBox.data(), rgbBox.size(), pPublicKey, pSecretKey) == 0;
    QIVENProcessSecretKeyRelease();
    return blOpened ? Opening::kOpened : Opening::kFailed;
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENPacketWriteEncrypted(const QIVEN_LOG *pLog, char **pszPKTOutput, int *pcbPKTOutput,
                              const QIVEN_SEND *pqivenSend, const char *szPublicKeyHex) {
    if (!Check(pLog, kModule, nullptr != pszPKTOutput, "((void *)0) != pszPKTOutput")) return 0;
    if (!Check(pLog, kModule, nullptr != *pszPKTOutput, "((void *)0) != (*pszPKTOutput)")) return 0;
    if (!Check(pLog, kModule, nullptr != pcbPKTOutput, "((void *)0) != pcbPKTOutput")) return 0;
    if (!Check(pLog, kModule, nullptr != pqivenSend, "((void *)0) != pqivenSend")) return 0;
    if (!Check(pLog, kModule, nullptr != szPublicKeyHex, "NULL != szPublicKeyHex")) return 0;

    auto *szBuffer = reinterpret_cast<unsigned char *>(*pszPKTOutput);
    const int cbPlain = QIVENPacketWrite(pLog, &szBuffer, pcbPKTOutput, pqivenSend);
    *pszPKTOutput = reinterpret_cast<char *>(szBuffer);
    if (cbPlain <= 0) {
        Error(pLog, kModule, "FAILED to write plain packet\n");
        return 0;
    }
    const int cbNeeded = cbPlain + kHeaderSize + QIVEN_SEAL_OVERHEAD;
    Debug(pLog, kModule, "pcbPKTOutput %d cbWrittenPlain %d needed %d\n", *pcbPKTOutput, cbPlain, cbNeeded);
    if (cbNeeded > QIVEN_PACKET_MAX) {
        Debug(pLog, kModule, "Required size %d too big\n", cbNeeded);
        return 0;
    }
    if (!EnsureCapacity(pLog, kModule, *pszPKTOutput, *pcbPKTOutput, cbNeeded)) return 0;

    unsigned char rgbBox[QIVEN_PACKET_MAX];
    szBuffer = reinterpret_cast<unsigned char *>(*pszPKTOutput);
    if (!Seal({szBuffer, static_cast<size_t>(cbPlain)}, szPublicKeyHex, rgbBox)) {
        Error(pLog, kModule, "FAILED to encrypt\n");
        return 0;
    }
    WriteCursor cursor({szBuffer, static_cast<size_t>(cbNeeded)});
    cursor.Put(stQIVENHeaderEncrypted);
    cursor.Put({rgbBox, static_cast<size_t>(cbPlain + QIVEN_SEAL_OVERHEAD)});
    return cbNeeded;
}

int QIVENPacketReadEncrypted(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                             nasinfo *pnasinfoOutput) {
    if (!Check(pLog, kModule, nullptr != szPKTInput, "((void *)0) != szPKTInput")) return 0;
    if (!Check(pLog, kModule, 0 < cbPKTInput, "0 < cbPKTInput")) return 0;
    if (!Check(pLog, kModule, nullptr != pnasinfoOutput, "NULL != pnasinfoOutput")) return 0;

    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    if (!TakeSealedHeader(cursor)) return QIVENPacketRead(pLog, szPKTInput, cbPKTInput, pnasinfoOutput);

    unsigned char rgbPlain[QIVEN_PACKET_MAX];
    switch (Open(cursor.Rest(), rgbPlain)) {
        case Opening::kNoKey:
            Debug(pLog, kModule, "No key to decrypt");
            return 0;
        case Opening::kFailed:
            Debug(pLog, kModule, "Failed to decrypt packet\n");
            return 0;
        case Opening::kOpened:
            break;
    }
    const Where where = kModule;
    Debug(pLog, where, "%s(%d): Decrypted packet.\n", "QIVENPacketReadEncrypted", where.iLine);
    const int cbPlain = cbPKTInput - kHeaderSize - QIVEN_SEAL_OVERHEAD;
    const int iResult = QIVENPacketRead(pLog, rgbPlain, cbPlain, pnasinfoOutput);
    sodium_memzero(rgbPlain, static_cast<size_t>(cbPlain));
    return iResult;
}
