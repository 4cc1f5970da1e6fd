// What the headers call reentrant runs in two threads at once on records of their own. Every build counts
// wrong results; the build with ThreadSanitizer sees shared state also when the results come out right.
#include <qiven/qiven.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "support/sandbox.h"

namespace {

constexpr int kRounds = 200;
const char *const kPublicKey = "de9edb7d7b7dc1b4d35b61c2ece435373f8343c85b78674dadfc7e146f882b4f";

std::atomic<int> g_nMessages{0};

int CountMessage(const char *szMessage) {
    g_nMessages += strstr(szMessage, "Invaild Argument") != nullptr ? 1 : 0;
    return 0;
}

using Buffer = std::unique_ptr<unsigned char, decltype(&free)>;

// Each job is one round of a thread; the number of the thread goes into its data, and must come out again.
bool Packets(const QIVEN_LOG *pLog, int iThread) {
    nasinfo record{}, back{};
    QIVEN_SEND send{&record, 0, {}};
    const std::string name = "nas" + std::to_string(iThread);
    const uint32_t ulModel = 7 + static_cast<uint32_t>(iThread);
    memcpy(record.szHostName, name.c_str(), name.size());
    memcpy(record.szPubKeyHex, kPublicKey, strlen(kPublicKey));
    record.ulPktType = QIVEN_PKT_ANSWER;
    record.ulModel = ulModel;
    QIVENNasinfoServRunSet(pLog, &record, ulModel);
    if (QIVENSendPktIDAdd(pLog, &send, 0x01U, 0xA4U, 0x11U, 0x48U, 0xC4U, 0U) != 5) return false;
    if (QIVENSendPktIDAddServ(pLog, &send, 1, 1) != 4) return false;
    int cbBuffer = 1;
    auto *pBuffer = static_cast<unsigned char *>(malloc(1));
    const int cb = QIVENPacketWrite(pLog, &pBuffer, &cbBuffer, &send);
    const Buffer plain(pBuffer, free);
    if (QIVENPacketRead(pLog, pBuffer, cb, &back) != cb - 8) return false;
    auto *pSealed = static_cast<char *>(malloc(1));
    int cbSealed = 1;
    const int cbBox = QIVENPacketWriteEncrypted(pLog, &pSealed, &cbSealed, &send, kPublicKey);
    const Buffer sealed(reinterpret_cast<unsigned char *>(pSealed), free);
    return name == back.szHostName && back.ulModel == ulModel && cbBox == cb + 56 &&
           QIVENNasinfoServRunGet(pLog, &back, ulModel) == 1;
}

bool Matrices(const QIVEN_LOG * /*pLog*/, int iThread) {
    using Owned = std::unique_ptr<MATRIX, decltype(&MatrixFree)>;
    const Owned inverse(MatrixAlloc(8, 8), MatrixFree), sum(MatrixAlloc(8, 8), MatrixFree);
    const std::string text = "text of thread " + std::to_string(iThread);
    char szEncoded[64], szText[64];
    return MatrixInversion(pmtr64, inverse.get()) == 0 &&
           MatrixAddition(inverse.get(), pmtr64, sum.get()) == 0 && MatrixTranspose(pmtr64, sum.get()) == 0 &&
           MatrixEncode(text.c_str(), szEncoded) > 0 &&
           MatrixDecode(szEncoded, szText) == static_cast<int>(text.size()) && text == szText;
}

bool Interfaces(const QIVEN_LOG *pLog, int /*iThread*/) {
    QIVEN_NETIF rgNetIf[QIVEN_IFACE_MAX] = {};
    const int n = QIVENGetIfListLnx(pLog, rgNetIf, QIVEN_IFACE_MAX);
    for (int i = 0; i < n; ++i)
        QIVENIfaceGetNetSetting(pLog, &rgNetIf[i]);
    return n >= 0 && QIVENIfaceGetActive(pLog, "lo") == -1;
}

bool Sends(const QIVEN_LOG *pLog, int iThread) {
    const QIVEN_CONN conn{"127.0.0.1", static_cast<uint16_t>(9990 + iThread), 0, nullptr, nullptr};
    const QIVEN_NETIF netIf{};
    return QIVENUDPSend(pLog, stQIVENBroadCastV11, 20, &conn, &netIf, 0) == 20;
}

// One record for both threads: each message is whole, and none is lost.
bool Messages(const QIVEN_LOG *pLog, int iThread) {
    return QIVENPacketRead(pLog, nullptr, iThread, nullptr) == 0;
}

TEST(Concurrency, WhatIsReentrantSharesNothing) {
    sandbox::Enter();
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, CountMessage);
    for (const auto job : {Packets, Matrices, Interfaces, Sends, Messages}) {
        g_nMessages = 0;
        std::atomic<int> nWrong{0}, nReady{0};
        const auto work = [&](int iThread) {
            for (++nReady; nReady < 2;) {
            }
            for (int i = 0; i < kRounds; ++i)
                if (!job(&log, iThread)) ++nWrong;
        };
        std::thread first(work, 0), second(work, 1);
        first.join();
        second.join();
        EXPECT_EQ(0, nWrong);
        EXPECT_EQ(job == Messages ? 2 * kRounds : 0, g_nMessages);
    }
}

}  // namespace
