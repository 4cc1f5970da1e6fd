// Which answers belong to one host: sequences of answers with times, and the events they cause.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "clock.h"
#include "hosts.h"

namespace {

using namespace qiven::watch;

constexpr uint64_t kStart = 1000 * kSecond;

// Content of an answer; milliseconds since the start.
struct Said {
    unsigned msAt;
    const char *szIdent, *szMac;
    uint32_t ulSource;  // the last byte, also of the claimed address
    const char *szName;
    uint32_t ulProcessID = 0;
    uint32_t ulIfIndex = 2;
};

struct Watched {
    std::unique_ptr<Table> pTable = std::make_unique<Table>();
    nasinfo record{};
    unsigned nRecognised = 0;  // by their bytes

    explicit Watched(uint64_t cbMax = 64 << 20, uint32_t nHostsMax = QIVEN_WATCH_HOSTS_MAX) {
        pTable->budget.cbMax = cbMax;
        pTable->nHostsMax = nHostsMax;
        pTable->ullChangeUs = kMillisecond;
        EXPECT_EQ(0, InitTable(*pTable));
    }
    ~Watched() { FreeTable(*pTable); }
    Watched(const Watched &) = delete;
    Watched &operator=(const Watched &) = delete;

    Heard Hear(const Said &said) {
        QIVEN_RECEIVED received{};
        record = {};
        record.ulPktType = QIVEN_PKT_ANSWER;
        snprintf(record.szHostIdent, sizeof record.szHostIdent, "%s", said.szIdent);
        snprintf(record.szMacAddr, sizeof record.szMacAddr, "%s", said.szMac);
        snprintf(record.szHostName, sizeof record.szHostName, "%s", said.szName);
        record.ulIP = 0x0A + (said.ulSource << 24);
        record.ulProcessID = said.ulProcessID;
        received.pnasInfo = &record;
        received.ulSource = record.ulIP;
        received.ulIfIndex = said.ulIfIndex;
        received.ullMonotonicUs = kStart + said.msAt * kMillisecond;
        // A datagram without arrays; the same words stand for the same bytes.
        const std::string bytes = std::string(said.szIdent) + '\n' + said.szMac + '\n' + said.szName + '\n' +
                                  std::to_string(record.ulIP) + '\n' + std::to_string(said.ulProcessID);
        received.pbDatagram = reinterpret_cast<const unsigned char *>(bytes.data());
        received.cbDatagram = static_cast<uint32_t>(bytes.size());
        const uint64_t ullDatagram = SipHash(pTable->key, bytes.data(), bytes.size());
        Datagram datagram{};
        datagram.ullArrivedUs = received.ullMonotonicUs;
        datagram.ulSource = received.ulSource;
        datagram.ulIfIndex = received.ulIfIndex;
        if (HearAgain(*pTable, datagram, ullDatagram)) {
            ++nRecognised;
            return Heard::kAgain;
        }
        return AddAnswer(*pTable, received, ullDatagram);
    }

    // Pending events as text: "+1" appeared, "~1" changed, "a" beside it: an address is new,
    // "-1" vanished, "2x1" conflict.
    std::string Told(unsigned msAt) {
        std::string told;
        ReleaseHeld(*pTable, kStart + msAt * kMillisecond);
        while (Node *pNode = NextNode(*pTable)) {
            auto *pHost = reinterpret_cast<Host *>(pNode);
            const std::string number = std::to_string(pHost->shown.ulHost);
            TakeOut(*pNode);
            const uint8_t uTell = pHost->uTell;
            if ((uTell & kToldAppeared) != 0) told += " +" + number;
            if ((uTell & kToldAppeared) == 0 && (uTell & kToldChanged) != 0) {
                told += " ~" + number;
                if ((pHost->ulChanged & QIVEN_CHANGED_RECORD) != 0) told += "r";
                if ((pHost->ulChanged & QIVEN_CHANGED_ADDRESS) != 0) told += "a";
            }
            if ((uTell & kToldConflict) != 0)
                told += " " + number + "x" + std::to_string(pHost->shown.ulConflict);
            pHost->uTell = 0;
            pHost->ulChanged = 0;
            Free(pTable->budget, pHost->pbWas, pHost->cbWas);
            pHost->pbWas = nullptr;
            if (uTell != kToldVanished) continue;
            told += " -" + number;
            FreeHost(*pTable, pHost);
        }
        return told;
    }
};

struct Scenario {
    const char *szTitle;
    std::vector<std::pair<Said, const char *>> steps;
    uint32_t nHosts;
};

const Said kA{0, "i", "aa", 1, "nas"};
const char *const kNone = "";

Said At(Said said, unsigned ms) {
    said.msAt = ms;
    return said;
}

const Scenario kScenarios[] = {
    {"the same again", {{kA, " +1"}, {At(kA, 400), kNone}}, 1},
    {"no identifier: the hardware address, then name and address",
     {{{0, "", "aa", 1, "nas"}, " +1"},
      {{1, "", "aa", 2, "nas"}, " ~1a"},
      {{2, "", "", 3, "nas"}, " +2"},
      {{3, "", "", 4, "nas"}, " +3"},
      {{4, "", "", 3, "nas"}, kNone}},
     3},
    {"two interfaces of a host, on one segment or two",
     {{kA, " +1"},
      {{1, "i", "bb", 2, "nas"}, " ~1a"},
      {{2, "i", "cc", 3, "nas", 0, 3}, " ~1a"},
      {At(kA, 400), kNone}},
     1},
    {"one answer heard by two interfaces of ours",
     {{kA, " +1"}, {{0, "i", "aa", 1, "nas", 0, 3}, " ~1a"}},
     1},
    {"renamed", {{kA, " +1"}, {{400, "i", "aa", 1, "new"}, " ~1r"}, {{800, "i", "aa", 1, "new"}, kNone}}, 1},
    {"a host with two interfaces renamed, one of them late",
     {{kA, " +1"},
      {{1, "i", "bb", 2, "nas"}, " ~1a"},
      {{400, "i", "aa", 1, "new"}, " ~1r"},
      {{401, "i", "bb", 2, "nas"}, kNone},
      {{800, "i", "aa", 1, "new"}, kNone},
      {{801, "i", "bb", 2, "new"}, kNone}},
     1},
    {"its second interface first heard when it was renamed already",
     {{kA, " +1"}, {{3000, "i", "bb", 2, "new"}, " +2"}, {{3001, "i", "aa", 1, "new"}, " ~2a -1"}},
     1},
    {"two machines that say different things at once",
     {{kA, " +1"},
      {{1, "i", "bb", 2, "clone"}, " +2 2x1"},
      {At(kA, 400), kNone},
      {{401, "i", "bb", 2, "clone"}, kNone}},
     2},
    {"two machines, the second one comes later",
     {{kA, " +1"},
      {{5000, "i", "bb", 2, "clone"}, " +2"},
      {At(kA, 5001), " 1x2"},
      {{5400, "i", "bb", 2, "clone"}, kNone},
      {At(kA, 5401), kNone}},
     2},
    {"the first machine was replaced", {{kA, " +1"}, {{5000, "i", "bb", 2, "clone"}, " +2"}}, 2},
    {"two machines with the same words, but two processes",
     {{{0, "i", "aa", 1, "nas", 7}, " +1"}, {{1, "i", "bb", 2, "nas", 8}, " +2 2x1"}},
     2},
    {"a restarted process is the same machine",
     {{{0, "i", "aa", 1, "nas", 7}, " +1"}, {{1, "i", "aa", 1, "nas", 8}, kNone}},
     1},
    {"clones that agree until one is renamed",
     {{kA, " +1"},
      {{1, "i", "bb", 2, "nas"}, " ~1a"},
      {{400, "i", "aa", 1, "new"}, " ~1r"},
      {{401, "i", "bb", 2, "nas"}, kNone},
      {{800, "i", "aa", 1, "new"}, kNone},
      {{801, "i", "bb", 2, "nas"}, " +2 2x1"},
      {{1200, "i", "aa", 1, "new"}, kNone}},
     2},
    {"two senders with one hardware address that disagree",
     {{kA, " +1"}, {{1, "i", "aa", 2, "clone"}, " +2 2x1"}},
     2},
    {"a host that got another address and another name",
     {{kA, " +1"}, {{5000, "i", "aa", 2, "new"}, " ~1ra"}, {{5400, "i", "aa", 2, "new"}, kNone}},
     1},
    {"a description that never stays the same",
     {{kA, " +1"},
      {{1, "i", "bb", 2, "nas"}, " ~1a"},
      {{400, "i", "aa", 1, "1"}, " ~1r"},
      {{401, "i", "bb", 2, "2"}, " ~1r"},
      {{800, "i", "aa", 1, "3"}, " ~1r"},
      {{801, "i", "bb", 2, "4"}, " ~1r"}},
     1},
};

TEST(Merge, TellsHostsApart) {
    for (const Scenario &scenario : kScenarios) {
        Watched watched;
        for (const auto &[said, szTold] : scenario.steps) {
            watched.Hear(said);
            EXPECT_EQ(szTold, watched.Told(said.msAt + 2)) << scenario.szTitle << ", at " << said.msAt;
        }
        EXPECT_EQ(scenario.nHosts, watched.pTable->nHosts) << scenario.szTitle;
    }
}

// A conflict is over when one of its machines disappears.
TEST(Merge, ForgetsAConflictWithTheSilent) {
    Watched watched;
    watched.pTable->ullVanishUs = 3 * kSecond;
    watched.Hear(kA);
    watched.Hear({1, "i", "bb", 2, "clone"});
    EXPECT_EQ(" +1 +2 2x1", watched.Told(2));
    watched.Hear(At(kA, 2900));
    VanishSilent(*watched.pTable, kStart + 3100 * kMillisecond, 10);
    EXPECT_EQ(" -2", watched.Told(3100));
    EXPECT_EQ(0U, FindHost(*watched.pTable, 1)->shown.ulConflict);
    // If the watch repeats queries, a host vanishes only after it missed some, not after silence alone.
    watched.pTable->blAsks = true;
    VanishSilent(*watched.pTable, kStart + 60000 * kMillisecond, 10);
    EXPECT_EQ(1U, watched.pTable->nHosts);
    watched.pTable->ulRound += kMissedRounds;
    VanishSilent(*watched.pTable, kStart + 60000 * kMillisecond, 10);
    EXPECT_EQ(0U, watched.pTable->nHosts);
}

// Answers with the same bytes are recognised, unless the host has said something else meanwhile, or they came
// another way, or are to be looked at anew.
TEST(Merge, RecognisesWhatItKnows) {
    Watched watched;
    Said said = kA;
    const auto Recognised = [&](const Said &again) {
        const unsigned nBefore = watched.nRecognised;
        ++said.msAt;
        watched.Hear(At(again, said.msAt));
        return watched.nRecognised > nBefore;
    };
    std::vector<Said> hosts;
    std::vector<std::string> idents;
    for (unsigned u = 0; u < 3000; ++u)
        idents.push_back("i" + std::to_string(u));
    for (const std::string &ident : idents)
        hosts.push_back({0, ident.c_str(), "aa", 1, "nas"});
    for (const Said &host : hosts)
        EXPECT_FALSE(Recognised(host));
    for (const Said &host : hosts)
        Recognised(host);  // what was learnt before the table grew is forgotten
    unsigned nRecognised = 0;
    for (const Said &host : hosts)
        nRecognised += Recognised(host) ? 1 : 0;
    EXPECT_GT(nRecognised, 2700U);  // the key is random, and a set of them is full now and then
    Said other = hosts[0];
    other.ulIfIndex = 3;
    EXPECT_FALSE(Recognised(other));
    EXPECT_TRUE(Recognised(other));
    other.szName = "new";
    EXPECT_FALSE(Recognised(other));
    EXPECT_FALSE(Recognised(hosts[0]));  // the first interface still says the old name
    Forget(watched.pTable->known);
    EXPECT_FALSE(Recognised(hosts[1]));
    EXPECT_EQ(3000U, watched.pTable->nHosts);
}

// Pending changes are merged, and the previous record is the last one that the caller has seen.
TEST(Merge, JoinsChangesThatWait) {
    Watched watched;
    watched.pTable->ullChangeUs = 1000 * kMillisecond;
    watched.Hear(kA);
    EXPECT_EQ(" +1", watched.Told(0));
    Host &host = *FindHost(*watched.pTable, 1);
    host.ullToldUs = kStart;
    for (unsigned ms = 1; ms < 500; ms += 100)
        watched.Hear({ms, "i", "aa", 1, ms % 200 == 1 ? "new" : "newer"});
    EXPECT_EQ("", watched.Told(900));
    nasinfo was;
    Unpack(host.pbWas, host.cbWas, was);
    EXPECT_STREQ("nas", was.szHostName);
    EXPECT_STREQ("new", Show(*watched.pTable, host, was)->pnasInfo->szHostName);
    EXPECT_EQ(" ~1r", watched.Told(1002));
}

// Strangers fill the table with all values that they can choose; the limit holds, and hosts that answer every
// query stay. Later hosts are added as invented ones miss queries. QIVEN_LONG=1 runs it with a million
// answers.
TEST(Merge, KeepsItsBoundAndItsHostsAgainstStrangers) {
    constexpr uint64_t kBytes = 4 << 20;
    const unsigned nPerRound = getenv("QIVEN_LONG") != nullptr ? 100'000 : 15'000;
    Watched watched(kBytes, 5000);
    Table &table = *watched.pTable;
    const auto Name = [](const char *szKind, unsigned u) { return szKind + std::to_string(u); };
    unsigned uForged = 0;
    std::string told;
    for (unsigned uRound = 1; uRound <= 10; ++uRound) {
        table.ulRound = uRound;
        const unsigned ms = uRound * 1000;
        for (unsigned u = 0; u < nPerRound; ++u, ++uForged) {
            const std::string name = Name("forged", uForged);
            const std::string mac = Name("m", u);
            switch (u % 4) {
                case 0:
                    watched.Hear({ms, name.c_str(), mac.c_str(), u % 200, "x"});
                    break;
                case 1:  // one host with new addresses each time
                    watched.Hear({ms, "victim", mac.c_str(), u % 200, "x"});
                    break;
                case 2:  // with new names each time
                    watched.Hear({ms, "victim2", "aa", 1, name.c_str()});
                    break;
                default:  // with new machines and processes each time
                    watched.Hear({ms, "victim3", mac.c_str(), u % 200, name.c_str(), u});
            }
            // 200 genuine hosts answer early in each round; half of them come when the table is full.
            if (const unsigned uHost = u / 50; u % 50 == 0 && uHost < 200) {
                const std::string host = Name("genuine", uHost);
                if (uHost % 2 == 0 || uRound > 2) watched.Hear({ms, host.c_str(), host.c_str(), 7, "nas"});
            }
            ASSERT_LE(table.budget.cbUsed, kBytes);
            if (u % 100 == 0) told += watched.Told(ms);
        }
    }
    unsigned nGenuine = 0;
    for (Host *p = HostAfter(table, 0); p != nullptr; p = HostAfter(table, p->shown.ulHost)) {
        if (strncmp(p->rgchKey, "igenuine", 8) != 0) continue;
        ++nGenuine;
        EXPECT_EQ(std::string::npos, told.find("-" + std::to_string(p->shown.ulHost) + " "));
    }
    EXPECT_GE(nGenuine, 195U);         // the hosts that make space for others are drawn at random
    EXPECT_LE(table.ulLast, 60'000U);  // the number of events from strangers is limited as well
    EXPECT_GT(table.ullLeftOut, 0U);
    EXPECT_LE(table.nHosts, 5000U);
}

}  // namespace
