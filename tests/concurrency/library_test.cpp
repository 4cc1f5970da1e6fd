// Runs functions that the headers call reentrant, and everything that docs/threading.md permits, in two
// threads with separate records. All builds count wrong results; ThreadSanitizer also detects shared state if
// the results are right.
#include <qiven/qiven.h>
#include <gtest/gtest.h>
#include <sodium.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
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

// Each job is one round of a thread; its data contains the number of the thread, and so must its results.
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
    return name == back.szHostName && back.ulModel == ulModel && cbBox == cb + 8 + QIVEN_SEAL_OVERHEAD &&
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

// Both threads share one record: each message is complete, and none is lost.
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

std::mutex g_mutex;
std::atomic<bool> g_blStop{false};
std::atomic<int> g_nHandled{0};

QIVEN_CONN Connection(const char *szAddr) {
    QIVEN_CONN conn{"", QIVEN_PORT, 0, [] { return g_blStop ? 1 : 0; }, nullptr};
    memcpy(conn.szAddr, szAddr, strlen(szAddr));
    return conn;
}

int StoreKey(nasinfo *pRecord) {
    ++g_nHandled;
    return QIVENAddKey(pRecord->szHostIdent, pRecord->ulProcessID, kPublicKey);
}

// A receive loop in its own thread that opens sealed packets and stores keys. Without a query connection,
// another thread may call the client under the lock of the handlers; with one, only functions that neither
// enumerate interfaces nor look up keys.
void RunLoopBeside(bool blQueries, const std::function<void()> &other) {
    g_blStop = false;
    g_nHandled = 0;
    std::thread loop([blQueries] {
        const QIVEN_CONN conn = Connection("0.0.0.0");
        QIVEN_CONN query = Connection("255.255.255.255");
        query.iTimeout = 1;
        QIVEN_RECV recv{};
        recv.pfnLock = [](int iLock) { return iLock == 1 ? g_mutex.lock() : g_mutex.unlock(), 0; };
        recv.pfnHandler = StoreKey;
        nasinfo record{};
        record.ulPktType = QIVEN_PKT_QUERY;
        QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
        EXPECT_EQ(0, QIVENUDPServer(&conn, &recv, blQueries ? &query : nullptr, blQueries ? &send : nullptr));
    });
    const time_t start = time(nullptr);
    const auto elapsed = [start] { return time(nullptr) - start; };
    while ((g_nHandled < kRounds || (blQueries && elapsed() < 3)) && elapsed() < 20)
        other();
    g_blStop = true;
    const QIVEN_CONN wake = Connection("127.0.0.1");
    const QIVEN_NETIF none{};
    QIVENUDPSend(nullptr, stQIVENBroadCastV11, 20, &wake, &none, 0);
    loop.join();
    EXPECT_LE(kRounds, g_nHandled);
}

TEST(Concurrency, AReceiveLoopBesideAClient) {
    sandbox::Enter();
    sandbox::PrivateDir("/etc");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    ASSERT_EQ(0, QIVENProcessKeyInit());
    char szOwnKey[QIVEN_KEY_HEX_SIZE];
    sodium_bin2hex(szOwnKey, sizeof szOwnKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    ASSERT_EQ(0, QIVENAddKey("self", 1, szOwnKey));

    nasinfo record{};
    record.ulPktType = QIVEN_PKT_ANSWER;
    record.ulPeerProcessID = 1;
    strcpy(record.szHostIdent, "self");
    QIVEN_SEND send{&record, 3, {0x01, 0xA4, 0x19}};
    const QIVEN_CONN conn = Connection("127.0.0.1");
    const QIVEN_NETIF none{};
    RunLoopBeside(false, [&] {
        const std::lock_guard<std::mutex> lock(g_mutex);
        EXPECT_EQ(0, QIVENUDPClient(&conn, &send));
    });
    RunLoopBeside(true, [&] {
        const unsigned char *pBuffer = stQIVENBroadCastV11;
        EXPECT_EQ(20, QIVENUDPSend(nullptr, pBuffer, 20, &conn, &none, 0));
        EXPECT_TRUE(Packets(nullptr, 0));
        usleep(1000);
    });
    QIVENRemoveAllKeys();
    QIVENProcessKeyCleanup();
}

}  // namespace
