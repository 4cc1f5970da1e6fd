// The peer key store. The test sets the clock and reads the hash of the store.
#include <qiven/keys.h>
#include <tavocore.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/failing_calls.h"

static TLIBC_SZHASH_HANDLE g_pStore = nullptr;

extern "C" int __real_TLIBCSzHashSetValue(TLIBC_SZHASH_HANDLE *ppHash, const char *szKey,
                                          const char *szValue);
extern "C" int __wrap_TLIBCSzHashSetValue(TLIBC_SZHASH_HANDLE *ppHash, const char *szKey,
                                          const char *szValue);
extern "C" int __wrap_TLIBCSzHashSetValue(TLIBC_SZHASH_HANDLE *ppHash, const char *szKey,
                                          const char *szValue) {
    g_pStore = *ppHash;
    return __real_TLIBCSzHashSetValue(ppHash, szKey, szValue);
}

namespace {

const std::string kKey(64, 'a');
constexpr time_t kDay = 86400;

std::string Get(const std::string &peer, uint32_t ulProcessID) {
    char sz[QIVEN_KEY_HEX_SIZE + 1];
    memset(sz, '.', sizeof sz);
    if (QIVENGetKey(peer.c_str(), ulProcessID, sz) != 0) return "none";
    EXPECT_EQ('.', sz[QIVEN_KEY_HEX_SIZE]);
    return sz;
}
// Fills the store with entries 1 to 4096 of one peer, all written at one time.
void Fill(time_t when) {
    FailingCallsUptime(when);
    QIVENRemoveAllKeys();
    for (uint32_t i = 1; i <= QIVEN_KEYS_MAX; ++i)
        ASSERT_EQ(0, QIVENAddKey("nas", i, kKey.c_str()));
    ASSERT_EQ(QIVEN_KEYS_MAX, TLIBCSzHashPairNum(g_pStore));
}

TEST(PeerKeys, TheFirstGoodAddCreatesTheStore) {
    FailingCallsUptime(1000);
    EXPECT_EQ(-1, QIVENAddKey("nas1", 0, kKey.c_str()));
    EXPECT_EQ("none", Get("nas1", 1));
    EXPECT_EQ(-1, QIVENRemoveKey("nas1", 1));
    EXPECT_EQ(-1, QIVENRemoveAllKeys());
    EXPECT_EQ(0, QIVENAddKey("nas1", 1, kKey.c_str()));
    EXPECT_EQ(0, QIVENRemoveAllKeys());
    EXPECT_EQ("none", Get("nas1", 1));
    EXPECT_EQ(0, QIVENRemoveAllKeys());
}

TEST(PeerKeys, EntriesAreNamedByPeerAndProcess) {
    FailingCallsUptime(0x1234);
    EXPECT_EQ(0, QIVENAddKey("nas1", 1, "old"));
    EXPECT_EQ(0, QIVENAddKey("nas1", 1, kKey.c_str()));
    EXPECT_EQ(0, QIVENAddKey("nas1", 0xFFFFFFFF, ""));
    EXPECT_EQ(2, TLIBCSzHashPairNum(g_pStore));
    EXPECT_STREQ(",1234", TLIBCSzHashGetValue(g_pStore, "nas1+ffffffff"));
    FailingCallsUptime(0x1235);
    EXPECT_EQ(kKey, Get("nas1", 1));
    EXPECT_EQ(kKey + ",1235", TLIBCSzHashGetValue(g_pStore, "nas1+00000001"));
    EXPECT_EQ("none", Get("nas2", 1));
    EXPECT_EQ(-1, QIVENRemoveKey("nas1", 2));
    EXPECT_EQ(0, QIVENRemoveKey("nas1", 1));
    EXPECT_EQ("none", Get("nas1", 1));
}

TEST(PeerKeys, BadArgumentsChangeNothing) {
    const std::string longest(54, 'p');
    const char *szLongest = longest.c_str();
    QIVENRemoveAllKeys();
    char sz[QIVEN_KEY_HEX_SIZE];
    ASSERT_EQ(0, QIVENAddKey(szLongest, 0x12, kKey.c_str()));
    EXPECT_EQ(kKey, Get(longest, 0x12));
    // Truncated to the length of an entry name, this peer would equal the one above.
    const std::string tooLong = longest + "+00000012";
    for (const int iResult :
         {QIVENAddKey(tooLong.c_str(), 1, kKey.c_str()), QIVENAddKey(nullptr, 1, kKey.c_str()),
          QIVENAddKey("nas1", 1, nullptr), QIVENAddKey("nas1", 1, (kKey + "a").c_str()),
          QIVENAddKey("nas1", 1, "a,b"), QIVENGetKey(szLongest, 0x12, nullptr),
          QIVENGetKey(nullptr, 0x12, sz), QIVENGetKey(szLongest, 0, sz), QIVENGetKey(tooLong.c_str(), 1, sz),
          QIVENRemoveKey(nullptr, 0x12), QIVENRemoveKey(szLongest, 0), QIVENRemoveKey(tooLong.c_str(), 1)})
        EXPECT_EQ(-1, iResult);
    EXPECT_EQ(1, TLIBCSzHashPairNum(g_pStore));
}

TEST(PeerKeys, AFullStoreMakesRoomByAge) {
    const struct {
        time_t filled, added;
        bool blKeepsRenewed;  // one entry was looked up a minute before the add
    } cases[] = {
        {1000, 1201, false},                  // too early to prune: emptied
        {1, 1202, true},                      // age limit 601
        {601, 1202, false},                   // nothing is older than 601: emptied
        {50000, 100000, true},                // just half the uptime old: second pass
        {100, 172799, true},                  // age limit 86399
        {10 * kDay, 11 * kDay, true},         // second pass
        {10 * kDay, 10 * kDay + 676, true},   // the last pass
        {10 * kDay, 10 * kDay + 675, false},  // none of eight passes: emptied
    };
    for (const auto &c : cases) {
        Fill(c.filled);
        FailingCallsUptime(std::max(c.filled, c.added - 60));
        EXPECT_EQ(kKey, Get("nas", 77));
        FailingCallsUptime(c.added);
        EXPECT_EQ(0, QIVENAddKey("new", 1, "k"));
        EXPECT_EQ("k", Get("new", 1)) << c.filled;
        EXPECT_EQ(c.blKeepsRenewed ? kKey : "none", Get("nas", 77)) << c.filled;
        EXPECT_EQ(c.blKeepsRenewed ? 2 : 1, TLIBCSzHashPairNum(g_pStore)) << c.filled;
    }
}

TEST(PeerKeys, AFailureWhilePruningRefusesTheNewEntry) {
    for (const char *szCall : {"TLIBCSzListGet", "TLIBCSzHashGetValue", "TLIBCSzHashRemoveKey", "no comma"}) {
        Fill(10 * kDay);
        if (szCall == std::string("no comma")) __real_TLIBCSzHashSetValue(&g_pStore, "nas+00000001", "?");
        FailingCallsUptime(12 * kDay);
        FailingCallsArm(szCall, 1, 0);
        EXPECT_EQ(-1, QIVENAddKey("new", 1, "k")) << szCall;
        FailingCallsDisarm();
        EXPECT_EQ(QIVEN_KEYS_MAX, TLIBCSzHashPairNum(g_pStore)) << szCall;
    }
}

}  // namespace
