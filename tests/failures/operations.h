// The operations of the library in which calls fail, and their data, created before the failures begin.
#pragma once

#include <qiven/qiven.h>
#include <tavocore.h>
#include <sodium.h>

#include <functional>
#include <memory>

#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/packets.h"
#include "support/sandbox.h"

namespace {

using interpose::Aside;

QIVEN_LOG g_log;

int KeepError(const char *sz) {
    const Aside aside;
    return LogCapture::Keep(QIVEN_LOG_ERR, sz);
}
int KeepDebug(const char *sz) {
    const Aside aside;
    return LogCapture::Keep(QIVEN_LOG_DEBUG, sz);
}

// The data of the operations, created before the failures begin.
QIVEN_NETIF g_rgNetIf[2];
nasinfo g_record;
QIVEN_SEND g_send;
std::string g_sealed;
char g_szKey[QIVEN_KEY_HEX_SIZE], g_szEncoded[33], g_szText[64];
TLIBC_SZHASH_HANDLE g_pHash;

void MakeKeys() {
    QIVENProcessKeyInit();
    sodium_bin2hex(g_szKey, sizeof g_szKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    g_sealed.assign(20 + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(g_sealed.data()), stQIVENBroadCastV11, 20,
                    QIVENProcessPublicKeyGet());
    g_sealed.insert(0, reinterpret_cast<const char *>(stQIVENHeaderEncrypted), sizeof stQIVENHeaderEncrypted);
    g_record.ulPktType = QIVEN_PKT_QUERY;
    g_send = {&g_record, 2, {0x01, 0xA4}};
}
void FillStore() {
    FailingCallsUptime(10'000);  // four passes over the store before it is emptied
    for (uint32_t i = 1; i <= QIVEN_KEYS_MAX; ++i)
        QIVENAddKey("nas", i, "k");
}
void AddKey() {
    QIVENAddKey("nas1", 1, "k");
}
void Arrive(const std::string &packet) {
    static std::string arriving;
    arriving = packet;
    interpose::clock.fnOnWait = [] {
        if (interpose::clock.nWaits == 1) SendTo(arriving);
    };
}

int UseKey() {
    return QIVENProcessSecretKeyAcquire() == nullptr ? -2 : QIVENProcessSecretKeyRelease();
}
int ReadSealed() {
    return QIVENPacketReadEncrypted(&g_log, reinterpret_cast<const unsigned char *>(g_sealed.data()),
                                    static_cast<int>(g_sealed.size()), &g_record);
}
// A buffer that is too small makes the writers allocate a larger one; the size that they return must be true.
int WriteSealed() {
    FailingCallsSuspend(1);
    auto *pBuffer = static_cast<char *>(malloc(1));
    FailingCallsSuspend(-1);
    int cbBuffer = 0;
    const int cb = QIVENPacketWriteEncrypted(&g_log, &pBuffer, &cbBuffer, &g_send, g_szKey);
    const Aside aside;
    free(pBuffer);
    return cb == cbBuffer ? cb : -cbBuffer;
}
// The number of interfaces, preceded by a 1 for each known property of the only interface.
int Interfaces() {
    const int n = QIVENIfaceInit(&g_log, g_rgNetIf, 2);
    const QIVEN_NETIF &netIf = g_rgNetIf[0];
    int iKnown = 0;
    for (const bool bl : {netIf.blActive != 0, netIf.blStatic != 0, netIf.ulIP != 0, netIf.ulBroadCast != 0,
                          netIf.ulMask != 0, netIf.ulGateway != 0, gulDNS != INADDR_NONE})
        iKnown = 10 * iKnown + (bl ? 1 : 0);
    return n < 0 ? n : 10 * iKnown + n;
}
int Client() {
    const QIVEN_CONN conn{"10.0.0.9", QIVEN_PORT, 0, nullptr, &g_log};
    return QIVENUDPClient(&conn, &g_send);
}
int Listen() {
    const QIVEN_CONN conn{"127.0.0.1", QIVEN_PORT, 1, nullptr, &g_log};
    const QIVEN_RECV recv{};  // every callback may be null
    return QIVENUDPServer(&conn, &recv, nullptr, nullptr);
}
int Get2Hash() {
    const int n = TAVOQIVENGet2Hash(&g_pHash);
    TLIBCHashRemoveAll(g_pHash);
    return n;
}
int Invert() {
    const std::unique_ptr<MATRIX, decltype(&MatrixFree)> p(MatrixAlloc(8, 8), MatrixFree);
    return p == nullptr ? -9 : MatrixInversion(pmtr64, p.get());
}

const struct Operation {
    std::string name;
    std::function<void()> prepare;
    std::function<int()> work;
} kOperations[] = {
    {"make keys", [] {}, QIVENProcessKeyInit},
    {"use key", MakeKeys, UseKey},
    {"clean up", MakeKeys, QIVENProcessKeyCleanup},
    {"read sealed", MakeKeys, ReadSealed},
    {"read damaged", [] { MakeKeys(), g_sealed.pop_back(); }, ReadSealed},
    {"write sealed", MakeKeys, WriteSealed},
    {"add key", [] {}, [] { return QIVENAddKey("nas1", 1, "k"); }},
    {"make space", FillStore, [] { return QIVENAddKey("new", 1, "k"); }},
    {"get key", AddKey, [] { return QIVENGetKey("nas1", 1, g_szText); }},
    {"remove key", AddKey, [] { return QIVENRemoveKey("nas1", 1); }},
    {"interfaces", [] {}, Interfaces},
    {"dump", [] {}, [] { return QIVENIfaceDump(nullptr); }},
    {"client", MakeKeys, Client},
    {"listen", [] { Arrive(Answer(2, "nas1", "10.0.0.2", "")); }, Listen},
    {"search", [] { Arrive(Answer(2, "nas1", "10.0.0.2", "")); }, TAVOQIVENDumpHost},
    {"hash",
     [] { sandbox::WriteFile("/tmp/tavoqx.list.tmp", "7,300,nas1,10.0.0.1,\n7,300,nas2,10.0.0.2,\n"); },
     Get2Hash},
    {"invert", [] {}, Invert},
    {"encode", [] {}, [] { return MatrixEncode("ten bytes.", g_szText); }},
    {"decode", [] { MatrixEncode("ten bytes.", g_szEncoded); },
     [] { return MatrixDecode(g_szEncoded, g_szText); }},
};

}  // namespace
